// Tests of client.h: synchronous calls.
// Against a service that does what the test says; the library's threads call the recorder.
#include "unit/ipc/client_fixture.h"

namespace lumsar::test {
namespace {

TEST_F(ClientTest, ASynchronousCallIsAnsweredByItsNumber) {
  const RawPeer peer = connect();
  auto answering = std::async(std::launch::async, [&] {
    const Bytes request = peer.receive();
    const std::uint64_t number = callNumber(readHeader(request.data()));
    peer.send(message(IPC_MSG_DATA, "between"));
    peer.send(callMessage(IPC_MSG_CAMERA_LIST, "answer", number));
    return request;
  });
  const Bytes request = message(IPC_MSG_CAMERA_LIST, "question");
  Bytes reply(100);
  unsigned int size = 100;
  EXPECT_EQ(client.call(request, reply.data(), &size), 0);
  reply.resize(size);
  EXPECT_EQ(reply, message(IPC_MSG_CAMERA_LIST, "answer"));
  EXPECT_NE(callNumber(readHeader(answering.get().data())), 0U);
  EXPECT_EQ(request, message(IPC_MSG_CAMERA_LIST, "question")) << "the caller's bytes are its own";
  ASSERT_TRUE(recorder.awaitMessages(1));
  EXPECT_EQ(textOf(payloadOf(recorder.messages().front())), "between");
  EXPECT_EQ(recorder.sends(), 0) << "a call is no send";
}

TEST_F(ClientTest, AReplyThatDoesNotFit) {
  const RawPeer peer = connect();
  auto answering = std::async(std::launch::async, [&] {
    const Bytes request = peer.receive();
    peer.send(callMessage(1, std::string(1000, 'x'), callNumber(readHeader(request.data()))));
  });
  Bytes reply(100, 7);
  unsigned int size = 100;
  EXPECT_EQ(client.call(message(1), reply.data(), &size), kIpcReplyTooLarge);
  EXPECT_EQ(size, kHeaderSize + 1000);
  EXPECT_EQ(reply, Bytes(100, 7));
}

TEST_F(ClientTest, ACallHasATimeLimitAndALateReplyIsDropped) {
  IpcClient own(recorder.params(), kShort);
  const RawPeer peer = connect(own);
  unsigned int size = 0;
  EXPECT_EQ(own.call(message(1), nullptr, &size), IPC_ERROR_REPLY_TIMEOUT);
  peer.send(callMessage(1, "late", callNumber(readHeader(peer.receive().data()))));
  peer.send(message(IPC_MSG_DATA));
  ASSERT_TRUE(recorder.awaitMessages(1));
  EXPECT_EQ(recorder.messageCount(), 1U);
  EXPECT_TRUE(own.connected());
}

TEST_F(ClientTest, ACallEndsWithTheConnection) {
  RawPeer peer = connect();
  auto calling = std::async(std::launch::async, [&] {
    unsigned int size = 0;
    return client.call(message(1), nullptr, &size);
  });
  peer.receive();
  peer.close();
  EXPECT_EQ(calling.get(), IPC_ERROR_SERVICE_GONE);
}

TEST_F(ClientTest, ACallEndsWithDisconnect) {
  const RawPeer peer = connect();
  auto calling = std::async(std::launch::async, [&] {
    unsigned int size = 0;
    return client.call(message(1), nullptr, &size);
  });
  peer.receive();
  EXPECT_EQ(client.disconnect(), 0);
  EXPECT_EQ(calling.get(), IPC_ERROR_DISCONNECTED);
}

TEST_F(ClientTest, ACallInsideACallbackIsRefused) {
  std::promise<int> result;
  IpcClient own(recorder.params());
  recorder.duringReceive = [&](unsigned char*, int) {
    unsigned int size = 0;
    result.set_value(own.call(message(1), nullptr, &size));
  };
  const RawPeer peer = connect(own);
  peer.send(message(IPC_MSG_DATA));
  EXPECT_EQ(result.get_future().get(), IPC_ERROR_IN_CALLBACK);
}

TEST_F(ClientTest, CallsOfSeveralThreadsGetTheirOwnReplies) {
  const RawPeer peer = connect();
  constexpr int kCalls = 100;
  auto answering = std::async(std::launch::async, [&] {
    for (int left = 4 * kCalls; left > 0; --left) {
      const Bytes first = peer.receive();
      const Bytes second = peer.receive(milliseconds(5));
      if (!second.empty() && --left >= 0) peer.send(second);  // in the wrong order
      peer.send(first);
    }
  });
  std::vector<std::thread> callers;
  for (int thread = 0; thread < 4; ++thread) {
    callers.emplace_back([&, thread] {
      for (int i = 0; i < kCalls; ++i) {
        const Bytes request = message(1, std::to_string(thread * 1000 + i));
        Bytes reply(100);
        unsigned int size = 100;
        ASSERT_EQ(client.call(request, reply.data(), &size), 0);
        reply.resize(size);
        ASSERT_EQ(reply, request);
      }
    });
  }
  for (std::thread& caller : callers) caller.join();
  answering.get();
}

}  // namespace
}  // namespace lumsar::test
