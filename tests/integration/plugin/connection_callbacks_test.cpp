// The IPC library's other callbacks: connected, sent, closed.
// Drives the built plug-in through the callbacks of its parameter record, on a thread of their own.
// A lost connection tells a SPICE host's VM and the host, and an RDP host nothing.
#include "support/plugin/plugin_test.h"

namespace lumsar::test {
namespace {

using ConnectionCallbacks = PluginTest;
using ConnectionCallbacksOverSpice = OverSpice<ConnectionCallbacks>;
using LooseConnectionCallbacks = Loose<ConnectionCallbacks>;
using LooseConnectionCallbacksOverSpice = OverSpice<LooseConnectionCallbacks>;

Lines closedLines(int id, int error) {
  return {warning("Ipc connection disconnet!! connect id: " + std::to_string(id) +
                  " , error: " + std::to_string(error)),
          info("UnredirectAllVCams: send cmd to vm!")};
}

TEST_F(ConnectionCallbacksOverSpice, ConnectedIsLogged) {
  EXPECT_EQ(ipc.connectedCallback(12), 0);
  EXPECT_EQ(log.take(), Lines{info("client id[ 12 ] connect success!")});
  EXPECT_EQ(ipc.connectedCallback(-1), 0);
  EXPECT_EQ(log.take(), Lines{info("client id[ -1 ] connect success!")});
}

TEST_F(ConnectionCallbacksOverSpice, SentDoesNothing) {
  EXPECT_EQ(ipc.sentCallback(12), 0);
}

TEST_F(ConnectionCallbacksOverSpice, ClosedTellsTheVmAndTheHost) {
  openSpiceChannel();
  EXPECT_EQ(ipc.closedCallback(12, 104), 0);
  EXPECT_EQ(log.take(), closedLines(12, 104));
  EXPECT_EQ(host.takeBytes(), std::vector<Bytes>{message(2)});
  const std::vector<Posted> events = host.takeEvents(1);
  ASSERT_EQ(events.size(), 1U);
  EXPECT_EQ(events[0].event, 3);
  EXPECT_FALSE(events[0].hasData);
  EXPECT_EQ(events[0].length, 0);
}

TEST_F(LooseConnectionCallbacksOverSpice, WithdrawalIsExactly32Bytes) {
  ipc.closedCallback(1, 0);
  const Bytes expected{0x4D, 0x41, 0x43, 0x56, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
                       0,    0,    0,    0,    0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
  EXPECT_EQ(host.takeBytes(), std::vector<Bytes>{expected});
}

TEST_F(ConnectionCallbacksOverSpice, ClosedDoesNotAskForAnOpenChannel) {
  EXPECT_EQ(ipc.closedCallback(12, 0), 0);
  EXPECT_EQ(host.takeSent().size(), 1U);
  EXPECT_EQ(host.takeEvents(1).size(), 1U);
  EXPECT_EQ(log.take(), closedLines(12, 0));
}

TEST_F(LooseConnectionCallbacksOverSpice, ClosedIsHandledOnTheCallbacksThread) {
  EXPECT_EQ(ipc.params->onClose(1, 2, ipc.params->userData), 0);
  EXPECT_EQ(host.takeSent().at(0).thread, std::this_thread::get_id());
  EXPECT_EQ(host.takeEvents(1).at(0).thread, std::this_thread::get_id());
}

TEST_F(LooseConnectionCallbacks, TheVmIsToldBeforeTheHost) {
  Lines order;
  const auto send = [&](unsigned char*, int) {
    order.emplace_back("send");
    return 0;
  };
  const auto post = [&](RedirEvent, char*, int) { order.emplace_back("event"); };
  ASSERT_EQ(plugin.Init(send, post, "vm-7", kConfig), 0);
  ipc.closedCallback(1, 2);
  EXPECT_EQ(order, (Lines{"send", "event"}));
}

TEST_F(LooseConnectionCallbacksOverSpice, ClosedIgnoresTheSendsResult) {
  host.sendResult = 99;
  EXPECT_EQ(ipc.closedCallback(1, 2), 0);
}

TEST_F(ConnectionCallbacks, ClosedTellsAnRdpHostNothing) {
  startRdp();
  openRdpChannel();
  EXPECT_EQ(ipc.closedCallback(12, 104), 0);
  EXPECT_EQ(log.take(), closedLines(12, 104));
}

TEST_F(ConnectionCallbacksOverSpice, SpiceCallablesServeALossWhateverTheDataChannel) {
  plugin.DeInit();
  startRdp();
  EXPECT_EQ(ipc.closedCallback(12, 104), 0);
  EXPECT_EQ(log.take(), closedLines(12, 104));
  EXPECT_EQ(host.takeBytes(), std::vector<Bytes>{message(2)});
  EXPECT_EQ(host.takeEvents(1).size(), 1U);
}

TEST_F(LooseConnectionCallbacksOverSpice, ClosedDoesNotReconnect) {
  ipc.connected = false;
  ipc.closedCallback(12, 104);
  EXPECT_EQ(ipc.take(), Lines{});
}

TEST_F(ConnectionCallbacksOverSpice, ClosedLeavesTheChannelOpen) {
  openSpiceChannel();
  ipc.closedCallback(12, 104);
  forget();
  EXPECT_EQ(ipc.receive(message(6)), 0);
  EXPECT_EQ(host.takeSent().size(), 1U);
}

TEST_F(LooseConnectionCallbacksOverSpice, DisconnectMayCallBackWhileItHoldsTheLock) {
  openSpiceChannel();
  ipc.duringDisconnect = [&] { ipc.closedCallback(12, 0); };
  plugin.DeInit();
  EXPECT_EQ(host.takeBytes(), std::vector<Bytes>{message(2)});
  EXPECT_EQ(host.takeEvents(1).at(0).event, 3);
}

}  // namespace
}  // namespace lumsar::test
