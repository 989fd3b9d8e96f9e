// Tests of client.h: messages both ways, whole ones only.
// Against a service that does what the test says; the library's threads call the recorder.
#include "unit/ipc/client_fixture.h"

namespace lumsar::test {
namespace {

TEST_F(ClientTest, WholeMessagesOnly) {
  const RawPeer peer = connect();
  const Bytes first = message(IPC_MSG_DATA, "first");
  const Bytes second = message(IPC_MSG_DEVICE_CHANGE, std::string(300'000, 's'));
  Bytes stream = first;
  stream.insert(stream.end(), second.begin(), second.end());
  stream.insert(stream.end(), first.begin(), first.end());
  const std::span bytes(stream);
  for (std::size_t at = 0; at < bytes.size();) {
    const std::size_t size = at < 64 ? 1 : 50'021;
    peer.send(bytes.subspan(at, std::min(size, bytes.size() - at)));
    at += size;
  }
  ASSERT_TRUE(recorder.awaitMessages(3));
  EXPECT_EQ(recorder.messages(), (std::vector<Bytes>{first, second, first}));
}

TEST_F(ClientTest, HalfAMessageIsNotDelivered) {
  RawPeer peer = connect();
  const Bytes whole = message(IPC_MSG_DATA, "payload");
  peer.send(std::span(whole).first(whole.size() - 1));
  peer.close();
  ASSERT_TRUE(recorder.awaitClose());
  EXPECT_TRUE(recorder.messages().empty());
  EXPECT_EQ(recorder.closes().front(), IPC_ERROR_SERVICE_GONE);
}

TEST_F(ClientTest, AnEmptyMessageIsWhole) {
  const RawPeer peer = connect();
  peer.send(message(IPC_MSG_DATA));
  ASSERT_TRUE(recorder.awaitMessages(1));
  EXPECT_EQ(recorder.messages().front().size(), kHeaderSize);
}

TEST_F(ClientTest, GarbageClosesTheConnection) {
  const RawPeer peer = connect();
  peer.send(message(IPC_MSG_DATA, "good"));
  peer.send(Bytes{'b', 'a', 'd'});
  ASSERT_TRUE(recorder.awaitClose());
  EXPECT_EQ(recorder.messageCount(), 1U) << "what came whole before is delivered";
  EXPECT_EQ(recorder.closes().front(), IPC_ERROR_BAD_MAGIC);
  EXPECT_FALSE(client.connected());
  EXPECT_TRUE(peer.ended());
}

TEST_F(ClientTest, AMessageAboveTheLimitClosesTheConnection) {
  const RawPeer peer = connect();
  Bytes head = message(IPC_MSG_DATA);
  const std::uint32_t length = kMaxPayload + 1;
  std::memcpy(head.data() + 8, &length, sizeof length);
  peer.send(head);
  ASSERT_TRUE(recorder.awaitClose());
  EXPECT_EQ(recorder.closes().front(), IPC_ERROR_TOO_LONG);
}

TEST_F(ClientTest, TheCallbackMayWriteIntoTheMessage) {
  recorder.duringReceive = [](unsigned char* data, int length) {
    std::memset(data, 0xEE, static_cast<std::size_t>(length));
  };
  const RawPeer peer = connect();
  const Bytes pair[] = {message(IPC_MSG_DATA, "one"), message(IPC_MSG_DATA, "two")};
  Bytes both = pair[0];
  both.insert(both.end(), pair[1].begin(), pair[1].end());
  peer.send(both);
  ASSERT_TRUE(recorder.awaitMessages(2));
  EXPECT_TRUE(client.connected());
}

TEST_F(ClientTest, TheTransportsOwnTypesAreNotDelivered) {
  const RawPeer peer = connect();
  peer.send(message(IPC_MSG_CONNECT_ACCEPT));
  peer.send(message(kIpcOwnTypes + 77, "from a newer service"));
  peer.send(message(IPC_MSG_DATA));
  ASSERT_TRUE(recorder.awaitMessages(1));
  EXPECT_EQ(readHeader(recorder.messages().front().data()).type, IPC_MSG_DATA);
}

TEST_F(ClientTest, ASendArrivesAndIsReported) {
  const RawPeer peer = connect();
  const Bytes sent = message(IPC_MSG_SHARE, "{}");
  EXPECT_EQ(client.send(sent), 0);
  EXPECT_EQ(client.send(sent), 0);
  EXPECT_EQ(peer.receive(), sent);
  EXPECT_TRUE(eventually([&] { return recorder.sends() == 2; }));
}

TEST_F(ClientTest, OnlyWholeMessagesAreSent) {
  const RawPeer peer = connect();
  Bytes bad = message(IPC_MSG_SHARE, "{}");
  EXPECT_EQ(client.send(std::span(bad).first(10)), IPC_ERROR_BAD_MESSAGE);
  EXPECT_EQ(client.send(std::span(bad).first(bad.size() - 1)), IPC_ERROR_BAD_MESSAGE);
  bad[0] = 0;
  EXPECT_EQ(client.send(bad), IPC_ERROR_BAD_MESSAGE);
  unsigned int size = 0;
  EXPECT_EQ(client.call(bad, nullptr, &size), IPC_ERROR_BAD_MESSAGE);
  EXPECT_EQ(client.send(message(IPC_MSG_SHARE)), 0);
  EXPECT_EQ(peer.receive(), message(IPC_MSG_SHARE)) << "and nothing else came before it";
}

TEST_F(ClientTest, AStuckServiceDoesNotBlockASender) {
  IpcClient own(recorder.params(), kShort);
  const RawPeer peer = connect(own);
  const Bytes huge = message(IPC_MSG_DATA, std::string(8U << 20U, 'x'));
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(own.send(huge), IPC_ERROR_SEND_TIMEOUT);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, kAtOnce);
  ASSERT_TRUE(recorder.awaitClose()) << "the message was cut, so the stream has ended";
  EXPECT_EQ(recorder.closes().front(), IPC_ERROR_SEND_TIMEOUT);
}

TEST_F(ClientTest, DisconnectFreesAStuckSender) {
  const RawPeer peer = connect();
  const Bytes huge = message(IPC_MSG_DATA, std::string(8U << 20U, 'x'));
  auto sending = std::async(std::launch::async, [&] { return client.send(huge); });
  EXPECT_EQ(peer.read(1).size(), 1U) << "it is under way";
  EXPECT_EQ(client.disconnect(), 0);
  EXPECT_NE(sending.get(), 0);
}

}  // namespace
}  // namespace lumsar::test
