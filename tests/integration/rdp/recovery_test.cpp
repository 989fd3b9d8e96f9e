// What the RDP host makes of a server or a camera service that goes away and comes back.
#include <filesystem>

#include "integration/rdp/rig.h"
#include "integration/rdp/unix_socket.h"

namespace {

using namespace lumsar_test;

class RdpRecovery : public Rig {
 protected:
  // Interrupts a host that `listener` never answers.
  void expectQuickInterrupt(int listener) {
    startService();
    startHost();
    int client = -1;
    while (client < 0) client = acceptSoon(listener);
    std::this_thread::sleep_for(milliseconds(300));
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(host->stop(), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, seconds(5));
    close(client);
    close(listener);
  }
};

TEST_F(RdpRecovery, ServerKilledAndBack) {
  startAll();
  greet();
  service->messages().clear();
  server.reset();
  EXPECT_TRUE(host->says("channel to the VM is closed"));
  EXPECT_TRUE(service->messages().nextOf(lumsar::IPC_MSG_UNSHARE_ALL));
  startServer();
  ASSERT_TRUE(server->waitForClient());
  greet();
  expectThrough(noise(100'000, 1));
  EXPECT_EQ(host->stop(), 0);
}

TEST_F(RdpRecovery, ConnectionCutInTheMiddleOfAMessage) {
  startAll();
  greet();
  server->stall(true);
  service->send(message(lumsar::IPC_MSG_DATA, noise(4U << 20U, 1)));
  std::this_thread::sleep_for(milliseconds(200));
  server->dropClient();
  server->stall(false);
  ASSERT_TRUE(host->says("channel to the VM is open", 2));
  server->messages().clear();
  greet();
  EXPECT_EQ(server->strayBytes(), 0U) << "the rest of the old message reached the new server";
  expectThrough(noise(3000, 2));
  EXPECT_EQ(host->stop(), 0);
}

TEST_F(RdpRecovery, NoRoomForTemporaryFilesForAWhile) {
  const std::string temporary = path("temporary");
  std::filesystem::create_directory(temporary);
  startService();
  startServer();
  startHost({"--ignore-certificate"}, {{"TMPDIR", temporary}});
  ASSERT_TRUE(server->waitForClient());
  greet();
  std::filesystem::rename(temporary, path("elsewhere"));
  service.reset();
  EXPECT_TRUE(host->says("cannot make a directory"));
  std::filesystem::rename(path("elsewhere"), temporary);
  startService();
  EXPECT_TRUE(host->says("connected to the camera service", 2));
  EXPECT_EQ(host->stop(), 0);
}

TEST_F(RdpRecovery, CameraServiceKilledAndBack) {
  startAll();
  greet();
  service.reset();
  EXPECT_TRUE(host->says("camera service lost"));
  startService();
  // The VM has noticed nothing; the host greets it anew in the name of its channel.
  const auto bytes = server->messages().nextOf(lumsar::MSG_HELLO);
  ASSERT_TRUE(bytes);
  lumsar::HelloMessage hello;
  std::memcpy(&hello, bytes->data(), sizeof hello);
  answer(hello, 0x10, 3);
  EXPECT_TRUE(service->messages().nextOf(lumsar::IPC_MSG_POLICY));
  EXPECT_TRUE(service->messages().nextOf(lumsar::IPC_MSG_REDIRECT_ALL));
  expectThrough(noise(2000, 3));
  EXPECT_EQ(server->clients(), 1);
  EXPECT_EQ(host->stop(), 0);
  EXPECT_EQ(host->countOf("\"recoveries\":1"), 1);
}

TEST_F(RdpRecovery, CameraServiceComesLate) {
  startServer();
  startHost();
  EXPECT_TRUE(host->says("no camera service"));
  startService();
  EXPECT_TRUE(host->says("connected to the camera service"));
  ASSERT_TRUE(server->waitForClient());
  greet();
  EXPECT_EQ(host->stop(), 0);
}

TEST_F(RdpRecovery, NoServerThenOne) {
  startService();
  startHost();
  EXPECT_TRUE(host->says("no channel to the VM: " + path("rdp")));
  startServer();
  ASSERT_TRUE(server->waitForClient());
  greet();
  EXPECT_EQ(host->stop(), 0);
}

TEST_F(RdpRecovery, ServerThatDropsEveryClientIsSpared) {
  startService();
  startServer();
  startHost();
  const auto end = std::chrono::steady_clock::now() + seconds(8);
  while (std::chrono::steady_clock::now() < end) {
    if (!server->waitForClient(milliseconds(100))) continue;
    std::this_thread::sleep_for(milliseconds(300));  // until the host, too, takes it for connected
    server->dropClient();
    std::this_thread::sleep_for(milliseconds(100));
  }
  EXPECT_GE(host->countOf("channel to the VM is closed"), 2);
  EXPECT_LE(server->clients(), 5);
  EXPECT_EQ(host->stop(), 0);
}

// As a forwarded port does while the VM behind it boots.
TEST_F(RdpRecovery, PortThatIsOpenWithoutAServer) {
  startService();
  const int listener = listenAt(path("rdp"));
  startHost({"--ignore-certificate"}, {{"LUMSAR_USER", "ada"}, {"LUMSAR_PASSWORD", "password"}});
  int connections = 0;
  const auto end = std::chrono::steady_clock::now() + seconds(4);
  while (std::chrono::steady_clock::now() < end) {
    const int client = acceptSoon(listener);
    if (client < 0) continue;
    ++connections;
    close(client);
  }
  close(listener);
  EXPECT_GE(connections, 3);
  startServer();
  ASSERT_TRUE(server->waitForClient());
  greet();
  EXPECT_EQ(host->stop(), 0);
}

TEST_F(RdpRecovery, ProxyOfTheEnvironmentIsNotForRdp) {
  startService();
  startServer();
  startHost({"--ignore-certificate"}, {{"https_proxy", "http://127.0.0.1:1"}});
  ASSERT_TRUE(server->waitForClient());
  greet();
  EXPECT_EQ(host->stop(), 0);
}

TEST_F(RdpRecovery, InterruptJustBeforeConnecting) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "sanitizers want nothing to be loaded before them";
#endif
  startService();
  const int listener = listenAt(path("rdp"));  // which never says a word
  startHost({"--ignore-certificate"}, {{"LD_PRELOAD", LUMSAR_LATE_CONNECT}});
  ASSERT_TRUE(host->says("late_connect: not yet"));
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(host->stop(), 0);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, seconds(5));
  close(listener);
}

TEST_F(RdpRecovery, InterruptWhileTheServerSaysNothing) {
  expectQuickInterrupt(listenAt(path("rdp")));
}

// The name by which a server has bound its socket need not be the one by which we find it.
TEST_F(RdpRecovery, InterruptWhileAServerBehindALinkSaysNothing) {
  std::filesystem::create_directory(path("real"));
  std::filesystem::create_directory_symlink(path("real"), path("link"));
  std::filesystem::create_symlink(path("link/other"), path("rdp"));
  expectQuickInterrupt(listenAt(path("real/other")));
}

TEST_F(RdpRecovery, InterruptWhileAServerInItsOwnDirectorySaysNothing) {
  const auto here = std::filesystem::current_path();
  std::filesystem::current_path(directory);
  const int listener = listenAt("rdp");
  std::filesystem::current_path(here);
  expectQuickInterrupt(listener);
}

}  // namespace
