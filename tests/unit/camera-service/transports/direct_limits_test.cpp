// The whole service: what a host can reach by "sharetcp", how often, and what it learns from it.
#include "support/raw_peer.h"
#include "unit/camera-service/test_host.h"

namespace lumsar::test {
namespace {

class DirectLimitsTest : public ServiceTest {
 protected:
  void startCamera(std::vector<std::string> options = {}) {
    options.insert(options.end(), {"--camera", "test:A,320x240"});
    start(options);
    ASSERT_TRUE(host().awaitCamera("test:A"));
  }
  void shareWith(int port, const char* address = "127.0.0.1") {
    host().command(IPC_MSG_SHARE, {{"command", "sharetcp"},
                                   {"deviceId", "test:A"},
                                   {"remoteIp", address},
                                   {"remotePort", port}});
  }
  std::string refusal() {
    return host().awaitChange("refused").value("reason").toString().toStdString();
  }
  // The reason of the next failure, without the port.
  std::string failure(int port) {
    QString reason = host().awaitChange("failed", ++m_failures).value("reason").toString();
    return reason.replace(QString(":%1").arg(port), ":PORT").toStdString();
  }

 private:
  std::size_t m_failures = 0;
};

TEST_F(DirectLimitsTest, EachFailureLooksTheSameToAHost) {
  startCamera();
  RawListener listener("tcp:0");
  const int port = listener.port();
  shareWith(port);
  listener.accept().close();
  const std::string closes = failure(port);
  shareWith(port);
  {
    const RawPeer peer = listener.accept();
    peer.send(hello(0));
    EXPECT_TRUE(peer.ended());
  }
  EXPECT_EQ(failure(port), closes) << "a wrong token";
  shareWith(port);
  const RawPeer silent = listener.accept();
  EXPECT_EQ(failure(port), closes) << "no answer";
  listener.close();
  shareWith(port);
  EXPECT_EQ(failure(port), closes) << "nobody listens";
  EXPECT_TRUE(m_service->says("Connection refused")) << "the log tells";
  EXPECT_TRUE(m_service->says("another token"));
}

TEST_F(DirectLimitsTest, OnlySoManyConnectionsAtOnce) {
  startCamera();
  std::vector<RawListener> vms;
  for (int i = 0; i < 5; ++i) shareWith(vms.emplace_back("tcp:0").port());
  EXPECT_NE(refusal().find("at most 4 direct connections"), std::string::npos);
  EXPECT_FALSE(vms.back().accept(milliseconds(0)).connected());
}

TEST_F(DirectLimitsTest, OnlySoManyConnectionsInATime) {
  startCamera();
  RawListener closed("tcp:0");
  const int port = closed.port();
  closed.close();
  for (int i = 0; i < 9; ++i) {
    shareWith(port);
    if (i < 8) failure(port);
  }
  EXPECT_NE(refusal().find("8 direct connections in 10 s"), std::string::npos);
}

TEST_F(DirectLimitsTest, OnlyToTheNetworksThatAreAllowed) {
  startCamera({"--direct-to", "10.0.0.0/8", "--direct-to", "127.0.0.2"});
  const RawListener vm("tcp:0");
  shareWith(vm.port());
  EXPECT_NE(refusal().find("--direct-to"), std::string::npos);
  EXPECT_FALSE(vm.accept(milliseconds(0)).connected());
  shareWith(1, "127.0.0.2");
  host().awaitChange("failed");
}

TEST_F(DirectLimitsTest, ANameLeadsOnlyToTheNetworksThatAreAllowed) {
  startCamera({"--direct-to", "10.0.0.0/8"});
  const RawListener vm("tcp:0");
  shareWith(vm.port(), "localhost");
  EXPECT_NE(failure(vm.port()).find("no guest agent answers there"), std::string::npos);
  EXPECT_TRUE(m_service->says("in networks that the camera service does not connect to"));
  EXPECT_FALSE(vm.accept(milliseconds(0)).connected());
}

TEST_F(DirectLimitsTest, ANameThatIsNotKnownFailsAsAllDo) {
  startCamera();
  shareWith(1, "no-such-machine.invalid");
  EXPECT_NE(failure(1).find("no guest agent answers there"), std::string::npos);
}

TEST_F(DirectLimitsTest, WhatIsNoNameIsRefused) {
  startCamera();
  const std::string tooLong = std::string(254, 'a');
  std::size_t refusals = 0;
  for (const char* name : {"", "1.2.3", "a b", "-a", "a_b\n", tooLong.c_str()}) {
    shareWith(1, name);
    const QJsonObject refused = host().awaitChange("refused", ++refusals);
    EXPECT_TRUE(refused.value("reason").toString().contains("not a valid address of a VM")) << name;
  }
}

TEST_F(DirectLimitsTest, NeverToAllMachines) {
  startCamera();
  shareWith(1, "0.0.0.0");
  EXPECT_NE(refusal().find("not a valid address of a VM"), std::string::npos);
}

}  // namespace
}  // namespace lumsar::test
