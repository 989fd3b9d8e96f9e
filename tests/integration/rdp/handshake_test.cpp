// The handshake over a real RDP channel: what the VM's messages bring about at the camera service
// and what comes back, byte for byte.
#include "integration/rdp/rig.h"

namespace lumsar::test {
namespace {

class RdpHandshake : public Rig {};

TEST_F(RdpHandshake, OpeningWithdrawsAllCamerasAndSendsHello) {
  start();
  ASSERT_TRUE(server->waitForClient());
  service->messages().clear();
  ASSERT_TRUE(askForHello());
  const auto first = service->messages().next();
  ASSERT_TRUE(first);
  EXPECT_EQ(*first, message(IPC_MSG_UNSHARE_ALL));
}

TEST_F(RdpHandshake, AnswerWithShareAllSharesWithTheSession) {
  start();
  ASSERT_TRUE(server->waitForClient());
  const auto hello = askForHello();
  ASSERT_TRUE(hello);
  answer(*hello, 0x13, 4711);
  const auto policy = service->messages().nextOf(IPC_MSG_POLICY);
  ASSERT_TRUE(policy);
  EXPECT_EQ(policy->back(), 0);
  const auto share = service->messages().next();
  ASSERT_TRUE(share);
  EXPECT_EQ(headerOf(*share).type, IPC_MSG_REDIRECT_ALL);
  const Bytes payload = payloadOf(*share);
  EXPECT_NE(std::string(payload.begin(), payload.end()).find("4711"), std::string::npos);
  EXPECT_TRUE(host->says("VM answered, version 1.1"));
}

TEST_F(RdpHandshake, AnswerWithoutShareAllSharesNothing) {
  start({"--ignore-certificate", "--verbose"});
  ASSERT_TRUE(server->waitForClient());
  handshake(0x03);
  EXPECT_FALSE(service->messages().next(milliseconds(300)));
  // An RDP host gives the plug-in nowhere to post its events.
  EXPECT_TRUE(host->says("Post event function is NULL! Ignore this post!"));
  EXPECT_EQ(host->countOf("ready to share cameras"), 0);
}

TEST_F(RdpHandshake, WrongTokenIsRefusedAndTheRightOneStillWorks) {
  start();
  ASSERT_TRUE(server->waitForClient());
  auto hello = askForHello();
  ASSERT_TRUE(hello);
  ASSERT_TRUE(service->messages().nextOf(IPC_MSG_UNSHARE_ALL));
  answer({.token = static_cast<std::uint16_t>(hello->token + 1)}, 0x13);
  EXPECT_TRUE(host->says("the VM answered an older HELLO"));
  EXPECT_FALSE(service->messages().next(milliseconds(200)));
  answer(*hello);
  EXPECT_TRUE(service->messages().nextOf(IPC_MSG_POLICY));
}

TEST_F(RdpHandshake, ChannelClosedAndOpenedAgainByTheVm) {
  startSession();
  server->openChannel(false);
  ASSERT_TRUE(server->settle());
  server->openChannel(true);
  service->messages().clear();
  handshake();
  expectAtVm(noise(100, 1));
  EXPECT_EQ(server->clients(), 1);
}

TEST_F(RdpHandshake, InterruptedHostLeavesTheCameraService) {
  startSession();
  EXPECT_TRUE(service->connected());
  stopHost();
  EXPECT_TRUE(eventually([this] { return !service->connected(); }));
}

}  // namespace
}  // namespace lumsar::test
