// Tests of client.h: the end of a connection, by either side, and what must not happen after it.
// Against a service that does what the test says; the library's threads call the recorder.
#include "unit/ipc/client_fixture.h"

namespace lumsar::test {
namespace {

TEST_F(ClientTest, TheEndOfTheServiceIsReportedOnce) {
  RawPeer peer = connect();
  const auto begin = std::chrono::steady_clock::now();
  peer.close();
  ASSERT_TRUE(recorder.awaitClose());
  EXPECT_LT(recorder.closeTime() - begin, kAtOnce);
  EXPECT_FALSE(client.connected());
  EXPECT_EQ(client.send(message(2)), IPC_ERROR_NOT_CONNECTED);
  unsigned int size = 0;
  EXPECT_EQ(client.call(message(1), nullptr, &size), IPC_ERROR_NOT_CONNECTED);
  EXPECT_EQ(client.disconnect(), IPC_ERROR_NOT_CONNECTED);
  EXPECT_EQ(recorder.closes(), std::vector<int>{IPC_ERROR_SERVICE_GONE});
}

TEST_F(ClientTest, WhatTheServiceSentLastIsDelivered) {
  RawPeer peer = connect();
  for (int i = 0; i < 50; ++i) peer.send(message(IPC_MSG_DATA, std::string(1000, 'x')));
  peer.close();
  ASSERT_TRUE(recorder.awaitClose());
  EXPECT_EQ(recorder.messageCount(), 50U);
}

TEST_F(ClientTest, WhatWasSentBeforeDisconnectArrives) {
  const RawPeer peer = connect();
  EXPECT_EQ(client.send(message(IPC_MSG_UNSHARE_ALL)), 0);
  EXPECT_EQ(client.disconnect(), 0);
  EXPECT_EQ(peer.receive(), message(IPC_MSG_UNSHARE_ALL));
  EXPECT_TRUE(peer.ended());
}

TEST_F(ClientTest, NoCallbackBeginsAfterDisconnect) {
  for (int round = 0; round < 50; ++round) {
    std::atomic<bool> disconnected = false;
    std::atomic<int> late = 0;
    Recorder noisy;
    noisy.duringReceive = [&](unsigned char*, int) { late += disconnected ? 1 : 0; };
    noisy.duringClose = [&](int) { late += 100; };
    IpcClient own(noisy.params());
    const RawPeer peer = connect(own);
    std::thread flood([&] {
      while (peer.send(message(IPC_MSG_DATA, "x"))) {
      }
    });
    noisy.awaitMessages(1);
    EXPECT_EQ(own.disconnect(), 0);
    disconnected = true;
    flood.join();
    EXPECT_EQ(late, 0);
  }
}

TEST_F(ClientTest, DisconnectDoesNotWaitForACallback) {
  std::promise<void> entered;
  std::promise<void> released;
  recorder.duringReceive = [&](unsigned char*, int) {
    entered.set_value();
    released.get_future().wait();
  };
  IpcClient own(recorder.params());
  const RawPeer peer = connect(own);
  peer.send(message(IPC_MSG_DATA));
  entered.get_future().wait();
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(own.disconnect(), 0);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, kAtOnce);
  EXPECT_EQ(recorder.messageCount(), 0U) << "the callback still runs";
  released.set_value();
}

TEST_F(ClientTest, ACallbackMayDisconnect) {
  std::promise<int> result;
  IpcClient own(recorder.params());
  recorder.duringReceive = [&](unsigned char*, int) { result.set_value(own.disconnect()); };
  const RawPeer peer = connect(own);
  peer.send(message(IPC_MSG_DATA));
  EXPECT_EQ(result.get_future().get(), 0);
  EXPECT_TRUE(peer.ended());
  EXPECT_TRUE(recorder.closes().empty());
}

TEST_F(ClientTest, ACallbackMayDestroyTheClient) {
  std::promise<void> destroyed;
  auto own = std::make_unique<IpcClient>(recorder.params());
  recorder.duringClose = [&](int) {
    own.reset();
    destroyed.set_value();
  };
  RawPeer peer = connect(*own);
  const std::size_t before = threads();
  peer.close();
  destroyed.get_future().wait();
  EXPECT_TRUE(eventually([&] { return threads() < before; })) << "its thread ends by itself";
}

TEST_F(ClientTest, ACallbackMayConnectAgain) {
  std::promise<int> result;
  IpcClient own(recorder.params());
  bool first = true;
  recorder.duringClose = [&](int) {
    if (std::exchange(first, false)) result.set_value(own.connect(path.c_str()));
  };
  RawPeer peer = connect(own);
  peer.close();
  const RawPeer second = service.welcome();
  EXPECT_EQ(result.get_future().get(), 0);
  EXPECT_TRUE(own.connected());
  EXPECT_TRUE(recorder.awaitConnect(2));
}

TEST_F(ClientTest, AThrowingCallbackEndsThatCallbackOnly) {
  bool first = true;
  recorder.duringReceive = [&](unsigned char*, int) {
    if (std::exchange(first, false)) throw std::runtime_error("a host's fault");
  };
  IpcClient own(recorder.params());
  const RawPeer peer = connect(own);
  peer.send(message(IPC_MSG_DATA, "1"));
  peer.send(message(IPC_MSG_DATA, "2"));
  ASSERT_TRUE(recorder.awaitMessages(1));
  EXPECT_EQ(textOf(payloadOf(recorder.messages().front())), "2");
}

TEST_F(ClientTest, MissingCallbacksAreLeftOut) {
  IpcClientParams empty;
  IpcClient own(&empty);
  RawPeer peer = connect(own);
  peer.send(message(IPC_MSG_DATA));
  EXPECT_EQ(own.send(message(2)), 0);
  EXPECT_EQ(peer.receive(), message(2));
  peer.close();
  EXPECT_TRUE(eventually([&] { return !own.connected(); }));
}

TEST_F(ClientTest, NothingIsLeftBehind) {
  const std::size_t threadsBefore = threadsAtRest();
  const std::size_t descriptorsBefore = openDescriptors();
  for (int round = 0; round < 20; ++round) {
    Recorder ownRecorder;
    IpcClient own(ownRecorder.params());
    { const RawPeer peer = connect(own); }
    ownRecorder.awaitClose();
    const RawPeer again = connect(own);
  }
  EXPECT_TRUE(eventually([&] { return threads() == threadsBefore; }));
  EXPECT_EQ(openDescriptors(), descriptorsBefore);
}

}  // namespace
}  // namespace lumsar::test
