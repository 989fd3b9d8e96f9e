// The RDP host's HELLO: its bytes, token, log lines and the channel flag.
// Drives the built plug-in through Handler with the VM's channel-opened message.
// The SPICE host's HELLO is in spice_event_test.cpp.
#include "support/plugin/plugin_test.h"
#include "support/plugin/token.h"

namespace lumsar::test {
namespace {

class Hello : public PluginTest {
 protected:
  static Lines opened() {
    return {info("[Handler] Remote RDP vchannel is Opened! Unredirect all cameras first..."),
            info("Unredirect all cameras!"),
            info("[Handler] And, then, try to send HELLO to VM...")};
  }
};

using HelloOverRdp = OverRdp<Hello>;

using LooseHello = Loose<Hello>;
using LooseHelloOverRdp = OverRdp<LooseHello>;

TEST_F(HelloOverRdp, FollowsTheVmsChannelOpened) {
  const TokenWindow window;
  handle(message(3));
  const std::vector<Sent> sent = host.takeSent();
  ASSERT_EQ(sent.size(), 1U);
  const unsigned int token = readLe16(sent[0].bytes, 32);
  EXPECT_EQ(sent[0].bytes, pluginHello(token, 0x13));
  EXPECT_TRUE(window.contains(token)) << token;
  EXPECT_EQ(sent[0].thread, std::this_thread::get_id());
  EXPECT_EQ(log.take(), concat({opened(), rdpHelloLines(0, token)}));
  EXPECT_EQ(ipc.take(), Lines{sendOf(5)});
}

TEST_F(HelloOverRdp, LogsTheHostsResultAndOpensTheChannelAllTheSame) {
  host.sendResult = -3;
  handle(message(3));
  const unsigned int token = readLe16(host.takeBytes().at(0), 32);
  EXPECT_EQ(log.take(), concat({opened(), rdpHelloLines(-3, token)}));
  ipc.take();
  host.sendResult = 0;
  EXPECT_EQ(ipc.receive(message(6)), 0);
  EXPECT_EQ(host.takeSent().size(), 1U);
}

TEST_F(LooseHelloOverRdp, WithdrawsBeforeItGreets) {
  std::size_t greeted = 99;
  ipc.duringSend = [&] { greeted = host.takeSent().size(); };
  handle(message(3));
  EXPECT_EQ(greeted, 0U);
  ipc.duringSend = nullptr;
}

TEST_F(LooseHelloOverRdp, PayloadAndHeaderOfChannelOpenedAreNotRead) {
  Bytes opening = message(3, "junk", 77);
  for (std::size_t i = 16; i < 32; ++i) opening[i] = 0xEE;
  handle(opening);
  EXPECT_EQ(host.takeSent().size(), 1U);
}

TEST_F(HelloOverRdp, EachOpeningHasATokenOfItsOwnTime) {
  for (int i = 0; i < 3; ++i) {
    const TokenWindow window;
    const unsigned int token = openRdpChannel();
    EXPECT_TRUE(window.contains(token)) << token;
    EXPECT_LT(token, 10000U);
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
}

TEST_F(LooseHelloOverRdp, NewTokenReplacesTheOldOne) {
  const unsigned int first = openRdpChannel();
  unsigned int second = first;
  while (second == first) {
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
    second = openRdpChannel();
  }
  handle(message(VmHello{.token = first, .capabilities = 0x10}));
  EXPECT_EQ(log.take().at(1),
            warning("[Handler][1392] Token is dismatch! Recv[" + std::to_string(first) + "], Own[" +
                    std::to_string(second) + "]"));
}

TEST_F(Hello, SpiceAndRdpHellosShareOneToken) {
  startSpice();
  const unsigned int token = openSpiceChannel();
  handle(message(VmHello{.token = token ^ 1U}));
  EXPECT_EQ(log.take().at(1),
            warning("[Handler][1392] Token is dismatch! Recv[" + std::to_string(token ^ 1U) +
                    "], Own[" + std::to_string(token) + "]"));
}

TEST_F(LooseHello, WithoutSendFunctionTheChannelIsClosedAndTheTokenRenewed) {
  startSpice();
  const unsigned int token = openSpiceChannel();
  plugin.DeInit();
  ASSERT_EQ(plugin.RdpInit("vm-7", nullptr), 0);
  forget();
  std::this_thread::sleep_for(std::chrono::milliseconds(3));
  const TokenWindow window;
  handle(message(3));
  EXPECT_EQ(log.take(), concat({opened(),
                                {info("RdpSendHello: Enter!"),
                                 critical("RdpSendHello: RDP send data callback is NULL!!!"),
                                 info("RdpSendHello: Leave!")}}));
  EXPECT_EQ(ipc.receive(message(6)), 30);
  log.clear();
  // A token beyond the range never matches, and the refusal shows the plug-in's own.
  handle(message(VmHello{.token = 60000}));
  const std::string prefix = "warning: [Handler][1392] Token is dismatch! Recv[60000], Own[";
  const std::string line = log.take().at(1);
  ASSERT_TRUE(line.starts_with(prefix)) << line;
  EXPECT_TRUE(window.contains(static_cast<unsigned int>(std::stoul(line.substr(prefix.size())))))
      << line << ", the old one was " << token;
}

TEST_F(LooseHello, SpiceHostWithoutRdpFunctionClosesItsChannel) {
  startSpice();
  openSpiceChannel();
  handle(message(3));
  EXPECT_EQ(log.take().at(4), critical("RdpSendHello: RDP send data callback is NULL!!!"));
  EXPECT_EQ(ipc.receive(message(6)), 30);
}

TEST_F(LooseHelloOverRdp, WithdrawalThatCannotBeSentDoesNotStopIt) {
  ipc.sendResults = {5};
  handle(message(3));
  EXPECT_EQ(host.takeSent().size(), 1U);
  EXPECT_EQ(log.take().at(2), warning("Send ipc data failed! error:5"));
}

}  // namespace
}  // namespace lumsar::test
