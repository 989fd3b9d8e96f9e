// The handshake over a real RDP channel: what the VM's messages bring about at the camera service
// and what comes back, byte for byte.
#include "integration/rdp/rig.h"

namespace {

using namespace lumsar_test;

class RdpHandshake : public Rig {};

TEST_F(RdpHandshake, OpeningWithdrawsAllCamerasAndSendsHello) {
  startAll();
  service->messages().clear();
  ASSERT_TRUE(askForHello());
  const auto first = service->messages().next();
  ASSERT_TRUE(first);
  EXPECT_EQ(*first, message(lumsar::IPC_MSG_UNSHARE_ALL));
  EXPECT_EQ(host->stop(), 0);
}

TEST_F(RdpHandshake, AnswerWithShareAllSharesWithTheSession) {
  startAll();
  const auto hello = askForHello();
  ASSERT_TRUE(hello);
  answer(*hello, 0x13, 4711);
  const auto policy = service->messages().nextOf(lumsar::IPC_MSG_POLICY);
  ASSERT_TRUE(policy);
  EXPECT_EQ(policy->back(), 0);
  const auto share = service->messages().next();
  ASSERT_TRUE(share);
  EXPECT_EQ(headerOf(*share).type, lumsar::IPC_MSG_REDIRECT_ALL);
  const Bytes payload = payloadOf(*share);
  EXPECT_NE(std::string(payload.begin(), payload.end()).find("4711"), std::string::npos);
  EXPECT_TRUE(host->says("VM answered, version 1.1"));
  EXPECT_EQ(host->stop(), 0);
}

TEST_F(RdpHandshake, AnswerWithoutShareAllSharesNothing) {
  startService();
  startServer();
  startHost({"--ignore-certificate", "--verbose"});
  ASSERT_TRUE(server->waitForClient());
  greet(0x03);
  EXPECT_FALSE(service->messages().next(milliseconds(300)));
  // An RDP host gives the plug-in nowhere to post its events.
  EXPECT_TRUE(host->says("Post event function is NULL! Ignore this post!"));
  EXPECT_EQ(host->countOf("ready to share cameras"), 0);
  EXPECT_EQ(host->stop(), 0);
}

TEST_F(RdpHandshake, WrongTokenIsRefusedAndTheRightOneStillWorks) {
  startAll();
  auto hello = askForHello();
  ASSERT_TRUE(hello);
  ASSERT_TRUE(service->messages().nextOf(lumsar::IPC_MSG_UNSHARE_ALL));
  lumsar::HelloMessage wrong = *hello;
  wrong.payload.token = static_cast<std::uint16_t>(wrong.payload.token + 1);
  answer(wrong, 0x13);
  EXPECT_TRUE(host->says("the VM answered an older HELLO"));
  EXPECT_FALSE(service->messages().next(milliseconds(200)));
  answer(*hello, 0);
  EXPECT_TRUE(service->messages().nextOf(lumsar::IPC_MSG_POLICY));
  EXPECT_EQ(host->stop(), 0);
}

TEST_F(RdpHandshake, ChannelClosedAndOpenedAgainByTheVm) {
  startAll();
  greet();
  server->openChannel(false);
  std::this_thread::sleep_for(milliseconds(100));
  server->openChannel(true);
  service->messages().clear();
  greet();
  expectThrough(noise(100, 1));
  EXPECT_EQ(server->clients(), 1);
  EXPECT_EQ(host->stop(), 0);
}

TEST_F(RdpHandshake, InterruptedHostLeavesTheCameraService) {
  startAll();
  greet();
  EXPECT_TRUE(service->connected());
  EXPECT_EQ(host->stop(), 0);
  EXPECT_TRUE(service->waitUntilLeft());
}

}  // namespace
