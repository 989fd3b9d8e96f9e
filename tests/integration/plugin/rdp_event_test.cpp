// The RDP host's RdpEvent: it logs, closes the channel and withdraws cameras, and sends nothing.
// The channel flag shows in what happens to camera data.
#include "support/plugin/plugin_test.h"

namespace lumsar::test {
namespace {

using RdpEvent = PluginTest;
using RdpEventInSession = OverRdp<RdpEvent>;
using LooseRdpEvent = OverRdp<Loose<RdpEvent>>;

const Lines kClosed = {info("RdpEvent: Enter! event: 1"),
                       info("RdpEvent: Rdp vchannel is Closed! Unredirect all cameras!"),
                       info("Unredirect all cameras!")};

TEST_F(RdpEventInSession, OpeningSendsNothing) {
  plugin.RdpEvent(0);
  EXPECT_EQ(log.take(),
            (Lines{info("RdpEvent: Enter! event: 0"), info("RdpEvent: Rdp vchannel is Opened!"),
                   info("RdpEvent: Leave!")}));
  EXPECT_EQ(ipc.receive(message(6)), 30);
  EXPECT_EQ(log.take(), Lines{critical("OnReceive: spice channel is NOT opened!")});
}

TEST_F(RdpEventInSession, OpeningLeavesAnOpenChannelOpen) {
  openRdpChannel();
  plugin.RdpEvent(0);
  forget();
  EXPECT_EQ(ipc.receive(message(6)), 0);
  EXPECT_EQ(host.takeSent().size(), 1U);
}

TEST_F(LooseRdpEvent, ClosingWithdrawsAllCamerasAndClosesTheChannel) {
  openRdpChannel();
  plugin.RdpEvent(1);
  EXPECT_EQ(log.take(), concat({kClosed, {info("RdpEvent: Leave!")}}));
  EXPECT_EQ(ipc.take(), Lines{sendOf(5)});
  EXPECT_EQ(ipc.receive(message(6)), 30);
}

TEST_F(LooseRdpEvent, ClosingClosesTheChannelBeforeItWithdraws) {
  openRdpChannel();
  int status = -1;
  ipc.duringSend = [&] { status = ipc.receive(message(6)); };
  plugin.RdpEvent(1);
  ipc.duringSend = nullptr;
  EXPECT_EQ(status, 30);
}

TEST_F(RdpEventInSession, ClosingWithoutAnyHelloWithdrawsToo) {
  plugin.RdpEvent(1);
  EXPECT_EQ(log.take(), concat({kClosed, {info("RdpEvent: Leave!")}}));
  EXPECT_EQ(ipc.take(), Lines{sendOf(5)});
}

TEST_F(FreshPluginTest, RdpEventBeforeRdpInitMakesTheObject) {
  plugin.RdpEvent(1);
  Lines lines = log.take();
  ASSERT_EQ(lines.size(), 6U);
  EXPECT_TRUE(lines[1].starts_with("info: Compile time: ")) << lines[1];
  lines.erase(lines.begin() + 1);
  EXPECT_EQ(lines,
            concat({kClosed, {warning("SendIpcData: client is NULL!"), info("RdpEvent: Leave!")}}));
}

class OtherRdpEvent : public OverRdp<RdpEvent>, public testing::WithParamInterface<int> {};

TEST_P(OtherRdpEvent, IsUnsupportedAndChangesNothing) {
  openRdpChannel();
  plugin.RdpEvent(GetParam());
  const std::string number = std::to_string(GetParam());
  EXPECT_EQ(log.take(), (Lines{info("RdpEvent: Enter! event: " + number),
                               warning("RdpEvent: Unsupported channel event: " + number),
                               info("RdpEvent: Leave!")}));
  EXPECT_EQ(ipc.receive(message(6)), 0);
  EXPECT_EQ(host.takeSent().size(), 1U);
}

INSTANTIATE_TEST_SUITE_P(Codes, OtherRdpEvent,
                         testing::Values(5, 2, 3, 255, -1, 2147483647, -2147483647 - 1));

}  // namespace
}  // namespace lumsar::test
