// The SPICE host's Event: the HELLO, the channel flag, withdrawing all cameras.
// The flag shows in what happens to camera data.
#include "support/plugin/plugin_test.h"
#include "support/plugin/token.h"

namespace lumsar::test {
namespace {

class SpiceEvent : public PluginTest {
 protected:
  static Lines opened(unsigned int token) {
    return {info("Event: Spice channel is Opened!"),
            info("Event: Send hello to remote VM! Token: " + std::to_string(token) +
                 " , Version[ 1 . 1 ]")};
  }
  static Lines closed() {
    return {info("Event: Spice channel is Closed! Unredirect all cameras!"),
            info("Unredirect all cameras!")};
  }
};

using SpiceEventInSession = OverSpice<SpiceEvent>;

using LooseSpiceEvent = OverSpice<Loose<SpiceEvent>>;

TEST_F(SpiceEventInSession, OpeningSendsTheHello) {
  const TokenWindow window;
  plugin.Event(0);
  const std::vector<Sent> sent = host.takeSent();
  ASSERT_EQ(sent.size(), 1U);
  ASSERT_EQ(sent[0].bytes.size(), 36U);
  const unsigned int token = readLe16(sent[0].bytes, 32);
  EXPECT_EQ(sent[0].bytes, pluginHello(token, 3));
  EXPECT_EQ(sent[0].thread, std::this_thread::get_id());
  EXPECT_TRUE(window.contains(token)) << token;
  EXPECT_EQ(log.take(), opened(token));
}

TEST_F(SpiceEventInSession, EachOpeningSendsAFreshToken) {
  std::vector<unsigned int> tokens;
  for (int i = 0; i < 3; ++i) {
    const TokenWindow window;
    plugin.Event(0);
    const std::vector<Bytes> sent = host.takeBytes();
    ASSERT_EQ(sent.size(), 1U);
    tokens.push_back(readLe16(sent[0], 32));
    EXPECT_TRUE(window.contains(tokens.back()));
    EXPECT_EQ(log.take(), opened(tokens.back()));
    std::this_thread::sleep_for(std::chrono::milliseconds(3));
  }
  EXPECT_FALSE(tokens[0] == tokens[1] && tokens[1] == tokens[2]);
}

TEST_F(SpiceEventInSession, OpeningOpensTheChannelForCameraData) {
  EXPECT_EQ(ipc.receive(message(6, "jpeg")), 30);
  forget();
  openSpiceChannel();
  EXPECT_EQ(ipc.receive(message(6, "jpeg")), 0);
  EXPECT_EQ(host.takeBytes(), std::vector<Bytes>{message(1, "jpeg")});
}

TEST_F(SpiceEvent, OpeningWithoutSendFuncSendsNothingButOpensTheChannel) {
  plugin.Event(0);
  const Lines lines = log.take();
  ASSERT_EQ(lines.size(), 2U);
  EXPECT_EQ(lines[0], info("Event: Spice channel is Opened!"));
  const std::string prefix = "info: Event: Send hello to remote VM! Token: ";
  ASSERT_TRUE(lines[1].starts_with(prefix)) << lines[1];
  EXPECT_EQ(lines, opened(static_cast<unsigned int>(std::stoul(lines[1].substr(prefix.size())))));
  startSpice();
  EXPECT_EQ(ipc.receive(message(6)), 0);
  EXPECT_EQ(host.takeBytes(), std::vector<Bytes>{message(1)});
}

TEST_F(SpiceEventInSession, SendResultIsIgnored) {
  host.sendResult = -1;
  plugin.Event(0);
  const std::vector<Bytes> sent = host.takeBytes();
  ASSERT_EQ(sent.size(), 1U);
  EXPECT_EQ(log.take(), opened(readLe16(sent[0], 32)));
  host.sendResult = 0;
  EXPECT_EQ(ipc.receive(message(6)), 0);
  EXPECT_EQ(host.takeSent().size(), 1U);
}

TEST_F(LooseSpiceEvent, TheTokenIsWhatTheVmMustEcho) {
  const unsigned int token = openSpiceChannel();
  handle(message(VmHello{.token = token}));
  EXPECT_EQ(log.takeHere().front(), info("[Handler] Receive HELLO from remote VM!"));
  EXPECT_EQ(host.takeEvents(1).size(), 1U);
  EXPECT_TRUE(log.waitFor(info("PostEventToSpice: Leave!")));
}

TEST_F(SpiceEventInSession, ClosingWithdrawsAllCamerasAndClosesTheChannel) {
  openSpiceChannel();
  plugin.Event(1);
  EXPECT_EQ(log.take(), closed());
  EXPECT_EQ(ipc.take(), Lines{sendOf(5)});
  EXPECT_EQ(ipc.receive(message(6)), 30);
  EXPECT_EQ(log.take(), Lines{critical("OnReceive: spice channel is NOT opened!")});
}

TEST_F(SpiceEventInSession, ClosingWithoutAnyHelloWithdrawsToo) {
  plugin.Event(1);
  EXPECT_EQ(log.take(), closed());
  EXPECT_EQ(ipc.take(), Lines{sendOf(5)});
}

TEST_F(LooseSpiceEvent, ClosingClosesTheChannelBeforeItWithdraws) {
  openSpiceChannel();
  int status = -1;
  ipc.duringSend = [&] { status = ipc.receive(message(6)); };
  plugin.Event(1);
  ipc.duringSend = nullptr;
  EXPECT_EQ(status, 30);
}

TEST_F(SpiceEvent, ClosingWithoutAClientWarns) {
  plugin.Event(1);
  EXPECT_EQ(log.take(), concat({closed(), {warning("SendIpcData: client is NULL!")}}));
}

TEST_F(SpiceEventInSession, ClosingWhenTheServiceRefusesWarns) {
  ipc.sendResults = {9};
  plugin.Event(1);
  EXPECT_EQ(log.take(), concat({closed(), {warning("Send ipc data failed! error:9")}}));
  EXPECT_EQ(ipc.take(), Lines{sendOf(5)});
}

TEST_F(SpiceEventInSession, TheFlagOutlivesDeInit) {
  openSpiceChannel();
  plugin.DeInit();
  startSpice();
  EXPECT_EQ(ipc.receive(message(6)), 0);
  EXPECT_EQ(host.takeSent().size(), 1U);
}

class OtherSpiceEvent : public OverSpice<SpiceEvent>, public testing::WithParamInterface<int> {};

TEST_P(OtherSpiceEvent, IsUnsupportedAndChangesNothing) {
  openSpiceChannel();
  plugin.Event(GetParam());
  EXPECT_EQ(log.take(), Lines{warning("Unsupported channel event: " + std::to_string(GetParam()))});
  EXPECT_EQ(ipc.receive(message(6)), 0);
  EXPECT_EQ(host.takeSent().size(), 1U);
}

INSTANTIATE_TEST_SUITE_P(Codes, OtherSpiceEvent,
                         testing::Values(7, 2, 3, 255, -1, 2147483647, -2147483647 - 1));

}  // namespace
}  // namespace lumsar::test
