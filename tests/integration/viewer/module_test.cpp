// The module in programs that are no viewers: without SPICE, and with more than one VM.
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>

#include "integration/viewer/screen.h"
#include "support/raw_peer.h"
#include "support/temporary_directory.h"
#include "support/text.h"

namespace lumsar::test {
namespace {

struct Module : testing::Test {
  void SetUp() override {
    ASSERT_TRUE(screen.isUp());
    environment = screen.environment(directory.path());
  }

  std::string run(const std::string& modules) {
    environment["GTK_MODULES"] = modules;
    Process program({LUMSAR_GTK_PROGRAM}, {.environment = environment});
    EXPECT_EQ(program.wait(), 0);
    return program.output();
  }

  Screen screen;
  TemporaryDirectory directory;
  std::map<std::string, std::string> environment;
};

TEST_F(Module, DoesNothingInAProgramWithoutSpice) {
  const std::string without = run("");
  EXPECT_EQ(run(LUMSAR_GTK_MODULE), "loaded liblumsar-gtk.so\n" + without);
}

// VMs that never run, as far as their SPICE server needs one.
struct ModuleWithVms : Module {
  void SetUp() override {
    Module::SetUp();
    if (Process({"qemu-system-x86_64", "--version"}).wait() != 0) {
      GTEST_SKIP() << "install qemu-system-x86";
    }
    environment["GTK_MODULES"] = LUMSAR_GTK_MODULE;
    environment["LUMSAR_IPC_CHANNEL"] = channel;
    service = std::make_unique<Process>(std::vector<std::string>{
        LUMSAR_CAMERA_SERVICE, "--ipc-channel", channel, "--camera", "test:Front"});
    ASSERT_TRUE(eventually([this] { return std::filesystem::exists(channel); }));
  }

  std::string socket(const std::string& vm) const { return directory.path() + "/" + vm; }
  std::string address(const std::string& vm) const { return "spice+unix://" + socket(vm); }
  Process startVm(const std::string& name, const std::string& port) const {
    return Process({"qemu-system-x86_64",
                    "-name",
                    name,
                    "-nodefaults",
                    "-no-user-config",
                    "-S",
                    "-accel",
                    "tcg",
                    "-machine",
                    "q35",
                    "-display",
                    "none",
                    "-spice",
                    "unix=on,disable-ticketing=on,addr=" + socket(name),
                    "-device",
                    "virtio-serial-pci",
                    "-chardev",
                    "spiceport,id=camera,name=" + port,
                    "-device",
                    "virtserialport,chardev=camera,name=" + port});
  }
  bool isUp(const std::string& vm) const {
    return eventually([&] { return RawPeer(socket(vm)).connected(); });
  }

  const std::string channel = directory.path() + "/cameras.sock";
  std::unique_ptr<Process> service;
};

TEST_F(ModuleWithVms, TheNextVmGetsTheCamerasWhenTheFirstOneEnds) {
  const Process one = startVm("one", "org.lumsar.camera.0");
  const Process two = startVm("two", "org.lumsar.camera.0");
  ASSERT_TRUE(isUp("one") && isUp("two"));
  Process program({LUMSAR_SESSIONS_PROGRAM}, {.environment = environment, .input = true});
  program.write(address("one") + "\n");
  ASSERT_TRUE(service->says("client 1 'one' connected")) << program.output();
  program.write(address("two") + "\n");
  ASSERT_TRUE(program.says("two gets the cameras when the connection to one ends"));
  program.write("\n");
  EXPECT_TRUE(program.says("no more cameras for one: the viewer's connection to the VM has ended"));
  EXPECT_TRUE(service->says("client 2 'two' connected"));
  program.write("quit\n");
  EXPECT_EQ(program.wait(), 0);
  EXPECT_TRUE(service->says("client 2 'two' disconnected"));
}

TEST_F(ModuleWithVms, AnotherPortLoadsNothing) {
  const Process vm = startVm("one", "org.example.port.0");
  ASSERT_TRUE(isUp("one"));
  Process program({LUMSAR_SESSIONS_PROGRAM}, {.environment = environment, .input = true});
  program.write(address("one") + "\n");
  ASSERT_TRUE(program.says("port org.example.port.0")) << program.output();
  const std::string maps = readFile("/proc/" + std::to_string(program.id()) + "/maps");
  EXPECT_TRUE(has(maps, "liblumsar-gtk.so"));
  EXPECT_FALSE(has(maps, "liblumsar-viewer.so"));
}

}  // namespace
}  // namespace lumsar::test
