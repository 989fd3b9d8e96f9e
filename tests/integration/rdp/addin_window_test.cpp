// The add-in in a program of GTK 3, which gets the camera window with it.
#include <filesystem>
#include <fstream>

#include "base/text/bytes.h"
#include "integration/rdp/addin_client.h"
#include "integration/rdp/rig.h"
#include "integration/viewer/screen.h"
#include "support/text.h"

namespace lumsar::test {
namespace {

constexpr const char* kOpen = "channel to the VM is open";
constexpr const char* kOff = R"({"cameras":[{"id":"test:Front","name":"Front"}]})";
constexpr const char* kInUse =
    R"({"cameras":[{"id":"test:Front","name":"Front","sharedHere":true,"inUseHere":true}]})";

class RdpAddInWindow : public Rig {
 protected:
  void SetUp() override {
    ASSERT_TRUE(screen.isUp());
    startService();
    service->setList(kOff);
    startServer();
  }
  void TearDown() override {
    if (HasFailure() && client) std::printf("%s\n", client->output().c_str());
  }

  void startClient(const Process::Words& options = {}) {
    Process::Words command{LUMSAR_GTK_CLIENT, path("state")};
    for (const auto& words : {addInWords(), options}) {
      command.insert(command.end(), words.begin(), words.end());
    }
    auto environment = screen.environment(directory.path());
    environment["XDG_RUNTIME_DIR"] = directory.path();
    client.emplace(command, ProcessSetup{.environment = environment, .input = true});
    desktop = screen.window("--name", "^Desktop$");
    ASSERT_FALSE(desktop.empty()) << client->output();
  }
  void connect() {
    const int before = client->countOf(kOpen);
    client->write("connect " + path("rdp") + "\n");
    ASSERT_TRUE(server->waitForClient());
    // What the VM sends before that is lost.
    ASSERT_TRUE(client->says(kOpen, before + 1));
    handshake();
  }
  void begin(const Process::Words& options = {}) {
    startClient(options);
    if (!HasFatalFailure()) connect();
  }
  bool hasWindow() { return screen.hasWindow("--name", "^Cameras$"); }
  void openCameras() {
    const bool opens = eventually([this] {
      screen.press(desktop, "ctrl+alt+c");
      return eventually([this] { return hasWindow(); }, kAtOnce);
    });
    ASSERT_TRUE(opens);
    cameras = screen.window("--name", "^Cameras$");
  }
  bool shows(const std::string& text) {
    return eventually([&] {
      const int before = client->countOf("text " + text);
      client->write("texts\n");
      return eventually([&] { return client->countOf("text " + text) > before; },
                        milliseconds(200));
    });
  }
  bool isShared() {
    const auto share = service->messages().nextOf(IPC_MSG_SHARE);
    return share && has(base::textOf(*share), "test:Front");
  }

  Screen screen;
  std::optional<Process> client;
  std::string desktop, cameras;
  const std::filesystem::path choices = directory.path() + "/home/lumsar/viewer.json";
};

TEST_F(RdpAddInWindow, AClickSharesACamera) {
  begin();
  openCameras();
  ASSERT_TRUE(shows("Front"));
  screen.click(cameras, 50, 88);
  EXPECT_TRUE(isShared());
  service->setList(kInUse);
  EXPECT_TRUE(shows("In use by the VM"));
  expectAtVm(noise(70'000, 1));
}

// Without a header bar nothing else would say so. Nor is an RDP host told of what somebody else
// shares in its name.
TEST_F(RdpAddInWindow, AppearsWhenAUseBegins) {
  begin();
  EXPECT_FALSE(hasWindow());
  service->setList(kInUse);
  EXPECT_TRUE(eventually([this] { return hasWindow(); }));
  EXPECT_TRUE(shows("In use by the VM"));
}

TEST_F(RdpAddInWindow, SaysWhatIsWrongAndWhenTheConnectionHasEnded) {
  startClient();
  client->write("connect " + path("rdp") + "\n");
  ASSERT_TRUE(server->waitForClient());
  ASSERT_TRUE(client->says(kOpen));
  openCameras();
  EXPECT_TRUE(
      shows("The VM has not answered yet. Is lumsar-agent running there, and does the RDP "
            "server allow the channel?"));
  handshake();
  ASSERT_TRUE(shows("Front"));
  client->write("close\n");
  EXPECT_TRUE(shows("The connection to the VM has ended."));
  EXPECT_TRUE(eventually([this] { return !service->connected(); }));
}

TEST_F(RdpAddInWindow, ServesTheNextConnectionOfTheProgram) {
  begin();
  openCameras();
  ASSERT_TRUE(shows("Front"));
  for (int i = 0; i < 2; ++i) {
    client->write("close\n");
    ASSERT_TRUE(shows("The connection to the VM has ended."));
    server.emplace(serverSetup());
    connect();
    ASSERT_TRUE(shows("Front"));
  }
  screen.click(cameras, 50, 88);
  EXPECT_TRUE(isShared());
}

TEST_F(RdpAddInWindow, SaysThatAnotherConnectionHasNoCameras) {
  begin({"vm-id:Desk"});
  openCameras();
  RdpServerSetup other = serverSetup();
  other.socket = path("other");
  RdpServer second(other);
  client->write("connect " + other.socket + "\n");
  EXPECT_TRUE(
      shows("Desk has no cameras, as Desk has them. Connect to it again when that "
            "connection has ended."));
  EXPECT_TRUE(client->says("no cameras: another connection of this program has them"));
  ASSERT_TRUE(second.waitForClient());
  client->write("close\n");
  EXPECT_TRUE(shows("The connection to the VM has ended."));
}

TEST_F(RdpAddInWindow, WhatIsRememberedIsSharedAtTheNextConnection) {
  begin({"vm-id:Desk"});
  openCameras();
  ASSERT_TRUE(shows("Front"));
  service->setList(kInUse);
  ASSERT_TRUE(shows("In use by the VM"));
  screen.press(cameras, "alt+r");
  ASSERT_TRUE(eventually([&] { return has(readFile(choices), "test:Front"); }));
  EXPECT_TRUE(has(readFile(choices), "rdp " + path("rdp")));
  service->setList(kOff);
  client->write("close\n");
  ASSERT_TRUE(shows("The connection to the VM has ended."));
  server.emplace(serverSetup());
  connect();
  EXPECT_TRUE(isShared());
}

// What the profile says is said for each connection.
TEST_F(RdpAddInWindow, TheOptionsWinOverWhatIsRemembered) {
  std::filesystem::create_directories(choices.parent_path());
  std::ofstream(choices) << R"({"vms":{"rdp )" + path("rdp") +
                                R"(:3389 Desk":{"cameras":["test:Desk"]}}})";
  begin({"vm-id:Desk", "share:none"});
  ASSERT_TRUE(service->messages().nextOf(IPC_MSG_UNSHARE_ALL));
  openCameras();
  ASSERT_TRUE(shows("Front"));
  server->messages().clear();
  handshake();
  screen.click(cameras, 50, 88);
  EXPECT_TRUE(isShared()) << "and nothing before it";
}

TEST_F(RdpAddInWindow, TheProgramEndsWithItsConnection) {
  begin();
  openCameras();
  service->setList(kInUse);
  ASSERT_TRUE(shows("In use by the VM"));
  service->sendFrame(1, 100'000);
  client->write("quit\n");
  EXPECT_EQ(client->wait(), 0);
  EXPECT_TRUE(eventually([this] { return !service->connected(); }));
}

TEST_F(RdpAddInWindow, CanBeSwitchedOff) {
  begin({"window:no"});
  expectAtVm(noise(5000, 1));
  const std::string maps = readFile("/proc/" + std::to_string(client->id()) + "/maps");
  EXPECT_TRUE(has(maps, "liblumsar-client.so"));
  EXPECT_FALSE(has(maps, "liblumsar-viewer.so"));
}

}  // namespace
}  // namespace lumsar::test
