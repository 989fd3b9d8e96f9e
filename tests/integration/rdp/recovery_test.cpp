// What the RDP host makes of a server or a camera service that goes away and comes back.
#include <filesystem>

#include "integration/rdp/rig.h"

namespace lumsar::test {
namespace {

class RdpRecovery : public Rig {
 protected:
  // Interrupts a host that `listener` never answers.
  void expectQuickInterrupt(const RawListener& listener) {
    startService();
    startHost();
    const RawPeer client = listener.accept();
    EXPECT_EQ(client.read(1).size(), 1U) << "the host has asked";
    expectQuickStop();
  }
};

TEST_F(RdpRecovery, ServerKilledAndBack) {
  startSession();
  service->messages().clear();
  server.reset();
  EXPECT_TRUE(host->says("channel to the VM is closed"));
  EXPECT_TRUE(service->messages().nextOf(IPC_MSG_UNSHARE_ALL));
  startServer();
  beginSession();
  expectAtVm(noise(100'000, 1));
}

TEST_F(RdpRecovery, ConnectionCutInTheMiddleOfAMessage) {
  startSession();
  server->stall(true);
  service->send(message(IPC_MSG_DATA, noise(4U << 20U, 1)));
  ASSERT_TRUE(server->waitForBytes(100'000));
  server->dropClient();
  server->stall(false);
  ASSERT_TRUE(host->says("channel to the VM is open", 2));
  server->messages().clear();
  handshake();
  EXPECT_EQ(server->strayBytes(), 0U) << "the rest of the old message reached the new server";
  expectAtVm(noise(3000, 2));
}

TEST_F(RdpRecovery, NoRoomForTemporaryFilesForAWhile) {
  const std::string temporary = path("temporary");
  std::filesystem::create_directory(temporary);
  start({"--ignore-certificate"}, {{"TMPDIR", temporary}});
  beginSession();
  std::filesystem::rename(temporary, path("elsewhere"));
  service.reset();
  EXPECT_TRUE(host->says("cannot create a directory"));
  std::filesystem::rename(path("elsewhere"), temporary);
  startService();
  EXPECT_TRUE(host->says("connected to the camera service", 2));
}

TEST_F(RdpRecovery, CameraServiceKilledAndBack) {
  startSession();
  service.reset();
  EXPECT_TRUE(host->says("camera service lost"));
  startService();
  // The VM has noticed nothing; the host repeats the handshake in the name of its channel.
  const auto hello = nextHello();
  ASSERT_TRUE(hello);
  answer(*hello, 0x10, 3);
  EXPECT_TRUE(service->messages().nextOf(IPC_MSG_POLICY));
  EXPECT_TRUE(service->messages().nextOf(IPC_MSG_REDIRECT_ALL));
  expectAtVm(noise(2000, 3));
  EXPECT_EQ(server->clients(), 1);
  stopHost();
  EXPECT_EQ(host->countOf("\"recoveries\":1"), 1);
}

TEST_F(RdpRecovery, CameraServiceComesLate) {
  startServer();
  startHost();
  EXPECT_TRUE(host->says("no camera service"));
  startService();
  EXPECT_TRUE(host->says("connected to the camera service"));
  beginSession();
}

TEST_F(RdpRecovery, NoServerThenOne) {
  startService();
  startHost();
  EXPECT_TRUE(host->says("no channel to the VM: " + path("rdp")));
  startServer();
  beginSession();
}

TEST_F(RdpRecovery, ServerThatDropsEveryClientIsSpared) {
  start();
  const auto end = std::chrono::steady_clock::now() + seconds(8);
  for (int clients = 0; std::chrono::steady_clock::now() < end;) {
    if (!server->waitForClient(milliseconds(100))) continue;
    EXPECT_TRUE(host->says("channel to the VM is open", ++clients));
    server->dropClient();
    EXPECT_TRUE(host->says("channel to the VM is closed", clients));
  }
  EXPECT_GE(host->countOf("channel to the VM is closed"), 2);
  EXPECT_LE(server->clients(), 5);
}

// As a forwarded port does while the VM behind it boots.
TEST_F(RdpRecovery, PortThatIsOpenWithoutAServer) {
  startService();
  {
    const RawListener listener(path("rdp"));
    startHost({"--ignore-certificate"}, {{"LUMSAR_USER", "ada"}, {"LUMSAR_PASSWORD", "password"}});
    for (int i = 0; i < 3; ++i) EXPECT_TRUE(listener.accept().connected());
  }
  startServer();
  beginSession();
}

TEST_F(RdpRecovery, ProxyOfTheEnvironmentIsNotForRdp) {
  start({"--ignore-certificate"}, {{"https_proxy", "http://127.0.0.1:1"}});
  beginSession();
}

TEST_F(RdpRecovery, InterruptJustBeforeConnecting) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "sanitizers want nothing to be loaded before them";
#endif
  startService();
  const RawListener listener(path("rdp"));  // which never says a word
  startHost({"--ignore-certificate"}, {{"LD_PRELOAD", LUMSAR_LATE_CONNECT}});
  ASSERT_TRUE(host->says("late_connect: not yet"));
  expectQuickStop();
  // The library's list of logs has no lock, and the thread that connects extends it.
  EXPECT_EQ(host->countOf("late_connect: another thread makes the log"), 0);
}

TEST_F(RdpRecovery, InterruptWhileTheServerSaysNothing) {
  expectQuickInterrupt(RawListener(path("rdp")));
}

// The name by which a server has bound its socket need not be the one by which we find it.
TEST_F(RdpRecovery, InterruptWhileAServerBehindALinkSaysNothing) {
  std::filesystem::create_directory(path("real"));
  std::filesystem::create_directory_symlink(path("real"), path("link"));
  std::filesystem::create_symlink(path("link/other"), path("rdp"));
  expectQuickInterrupt(RawListener(path("real/other")));
}

TEST_F(RdpRecovery, InterruptWhileAServerInItsOwnDirectorySaysNothing) {
  const auto here = std::filesystem::current_path();
  std::filesystem::current_path(directory.path());
  const RawListener listener("rdp");
  std::filesystem::current_path(here);
  expectQuickInterrupt(listener);
}

}  // namespace
}  // namespace lumsar::test
