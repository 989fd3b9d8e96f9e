// The binary: exit statuses, clean ends by signals, files that may not grow, and the static one
// alone in an empty root.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <csignal>

#include "base/socket_listener.h"
#include "unit/agent/child.h"
#include "unit/agent/eventually.h"
#include "unit/agent/fake_host.h"

namespace lumsar::agent::test {
namespace {

bool has(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

TEST(Process, TellsItsVersionAndHelp) {
  Child version({LUMSAR_AGENT, "--version"});
  EXPECT_EQ(version.wait(), 0);
  EXPECT_TRUE(version.out().starts_with("lumsar-agent "));
  Child help({LUMSAR_AGENT, "--help"});
  EXPECT_EQ(help.wait(), 0);
  EXPECT_TRUE(has(help.out(), "Usage: lumsar-agent"));
}

TEST(Process, AWrongCommandLineEndsWithTwo) {
  Child child({LUMSAR_AGENT, "--protocol", "carrier-pigeon"});
  EXPECT_EQ(child.wait(), 2);
  EXPECT_TRUE(has(child.log(), "expected spice or rdp. See lumsar-agent --help"));
}

TEST(Process, AFailureEndsWithOne) {
  Child child({LUMSAR_AGENT, "--listen", "unix:/does/not/exist.sock"});
  EXPECT_EQ(child.wait(), 1);
  EXPECT_TRUE(has(child.log(), "cannot listen on unix:/does/not/exist.sock: No such file"));
}

TEST(Process, ATakenPortEndsWithOne) {
  const auto taken = base::SocketListener::at(base::Address::loopback(0));
  const std::string& address = taken.name();
  Child direct({LUMSAR_AGENT, "--listen-direct", address});
  EXPECT_EQ(direct.wait(), 1);
  EXPECT_TRUE(has(direct.log(), "Address already in use; stop the program that uses it"));
  Child view(
      {LUMSAR_AGENT, "--listen-direct", "tcp:0", "--view", address.substr(address.rfind(':') + 1)});
  EXPECT_EQ(view.wait(), 1);
  EXPECT_TRUE(has(view.log(), "Address already in use"));
}

class SignalTest : public testing::TestWithParam<int> {};

TEST_P(SignalTest, EndsCleanly) {
  const TempFolder folder;
  const std::string socket = folder / "vm.sock";
  Child child({LUMSAR_AGENT, "--listen", "unix:" + socket, "--save-mjpeg", folder / "saved",
               "--json", "--status-file", folder / "status.json"});
  FakeHost host("unix:" + socket);
  struct stat file {};
  ASSERT_EQ(stat(socket.c_str(), &file), 0);
  EXPECT_EQ(file.st_mode & 0777U, 0600U);
  ASSERT_TRUE(host.greet());
  host.send(announce(1, "Front"));
  ASSERT_TRUE(host.receiveRecord(CameraDataKind::Start, 1));
  for (std::uint32_t i = 0; i < 5; ++i) host.send(frame(1, i, picture(3000)));
  ASSERT_TRUE(
      eventually([&] { return contentOf(folder / "saved/Front-1.mjpeg").size() == 15000; }));
  child.signal(GetParam());
  EXPECT_EQ(child.wait(), 0);
  EXPECT_TRUE(host.receiveRecord(CameraDataKind::Stop, 1));
  EXPECT_TRUE(has(child.out(), R"("frames":5,"bytes":15000,"lost":0,"dropped":0)")) << child.out();
  EXPECT_EQ(folder.files(), (std::vector<std::string>{"saved", "status.json"}));
}

INSTANTIATE_TEST_SUITE_P(All, SignalTest, testing::Values(SIGINT, SIGTERM, SIGHUP));

TEST(Process, AFileThatMayNotGrowIsAnErrorAndNotTheEnd) {
  const TempFolder folder;
  const std::string socket = folder / "vm.sock";
  Child child({LUMSAR_AGENT, "--listen", "unix:" + socket, "--save-mjpeg", folder.path(), "--json"},
              [] {
                const rlimit limit{10000, 10000};
                setrlimit(RLIMIT_FSIZE, &limit);
              });
  FakeHost host("unix:" + socket);
  ASSERT_TRUE(host.greet());
  host.send(announce(1, "Front"));
  ASSERT_TRUE(host.receiveRecord(CameraDataKind::Start, 1));
  for (std::uint32_t i = 0; i < 4; ++i) host.send(frame(1, i, picture(3000)));
  EXPECT_TRUE(child.says("File too large; it is no longer saved"));
  EXPECT_TRUE(host.receiveRecord(CameraDataKind::Stop, 1));
  EXPECT_EQ(contentOf(folder / "Front-1.mjpeg").size(), 9000U);  // whole pictures only
  child.signal(SIGTERM);
  EXPECT_EQ(child.wait(), 0);
}

TEST(Process, WaitsForAVirtioPortByDefault) {
  Child child({LUMSAR_AGENT, "--discard", "--duration", "300ms"});
  EXPECT_EQ(child.wait(), 0);
  EXPECT_TRUE(has(child.log(), "waiting for a host on virtio port org.lumsar.camera.0"));
}

TEST(StaticProgram, WorksAloneInAnEmptyRoot) {
  const std::string program = LUMSAR_AGENT_STATIC;
  if (program.empty()) GTEST_SKIP() << "the static program is not built with sanitizers";
  if (geteuid() != 0) GTEST_SKIP() << "only root can change the root";
  const TempFolder root;
  std::filesystem::copy_file(program, root / "lumsar-agent");
  Child child(
      {"/lumsar-agent", "--listen", "unix:/vm.sock", "--save", "/saved", "--json", "--view", "0"},
      [path = root.path()] {
        if (chroot(path.c_str()) != 0 || chdir("/") != 0) _exit(126);
      });
  FakeHost host("unix:" + (root / "vm.sock"));
  ASSERT_TRUE(host.greet());
  host.send(announce(1, "Front"));
  ASSERT_TRUE(host.receiveRecord(CameraDataKind::Start, 1));
  host.send(frame(1, 0, picture()));
  EXPECT_TRUE(
      eventually([&] { return std::filesystem::exists(root / "saved/Front-1-000001.jpg"); }));
  child.signal(SIGINT);
  EXPECT_EQ(child.wait(), 0) << child.log();
  EXPECT_TRUE(has(child.out(), R"("savedFiles":1)"));
}

}  // namespace
}  // namespace lumsar::agent::test
