// Tests of server.h and message_stream.h: strangers, half messages, slow receivers. The server has
// a thread of its own.
#include "ipc/server/server.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <atomic>
#include <numeric>

#include "support/raw_peer.h"
#include "support/resources.h"
#include "support/temporary_directory.h"
#include "unit/ipc/test_server.h"

namespace lumsar::test {
namespace {

using protocol::Message;

class ServerTest : public ::testing::Test {
 protected:
  RawPeer introduced(const std::string& name = "vm-7") const {
    RawPeer peer(path);
    peer.send(message(IPC_MSG_CONNECT_REQUEST, name));
    EXPECT_EQ(readHeader(peer.receive().data()).type, IPC_MSG_CONNECT_ACCEPT);
    return peer;
  }
  // The server still serves: a call of another client is answered.
  void expectAlive(TestServer& server) const {
    const RawPeer peer = introduced("witness");
    const std::size_t before = server.messages().size();
    peer.send(message(IPC_MSG_SHARE, "alive"));
    EXPECT_TRUE(server.awaitMessages(before + 1));
  }

  TemporaryDirectory dir;
  std::string path = dir / "s";
};

TEST_F(ServerTest, WelcomesAClientByName) {
  TestServer server(path);
  const RawPeer peer = introduced("vm-7");
  const ipc::ClientId client = server.awaitClient();
  EXPECT_EQ(server.clients().at(client), "vm-7");
}

TEST_F(ServerTest, CarriesMessagesBothWays) {
  TestServer server(path);
  const RawPeer peer = introduced();
  peer.send(message(IPC_MSG_SHARE, "{}"));
  ASSERT_TRUE(server.awaitMessages(1));
  EXPECT_EQ(server.messages().front(), message(IPC_MSG_SHARE, "{}"));
  server.send(server.awaitClient(), {textMessage(IPC_MSG_DEVICE_CHANGE, "news")});
  EXPECT_EQ(peer.receive(), message(IPC_MSG_DEVICE_CHANGE, "news"));
}

TEST_F(ServerTest, TheRestOfAMessageFollowsItUncopiedAndIsHeldUntilItIsSent) {
  TestServer server(path);
  const RawPeer peer = introduced();
  const ipc::ClientId client = server.awaitClient();
  std::vector<std::weak_ptr<const void>> owners;
  std::vector<Bytes> expected;
  for (const std::size_t size : {0U, 1U, 100'000U, 3'000'000U}) {  // the last fills the socket
    const auto data = std::make_shared<Bytes>(size);
    std::iota(data->begin(), data->end(), static_cast<unsigned char>(size));
    expected.push_back(message(IPC_MSG_DATA, join({bytesOf("head"), *data})));
    owners.emplace_back(data);
    ipc::Outgoing outgoing{textMessage(IPC_MSG_DATA, "head"), true};
    outgoing.message.announceRest(size);
    outgoing.rest = {*data, data};
    server.send(client, std::move(outgoing));
  }
  EXPECT_FALSE(owners.back().expired());
  EXPECT_GT(server.counters(client).bytesQueued, 2'000'000U);
  for (const Bytes& one : expected) EXPECT_TRUE(peer.receive() == one);
  for (const auto& owner : owners) EXPECT_TRUE(eventually([&] { return owner.expired(); }));
}

TEST_F(ServerTest, AReplyCarriesTheCallsNumber) {
  TestServer server(path);
  server.duringMessage = [](ipc::IpcServer& own, ipc::ClientId client,
                            std::span<unsigned char> bytes) {
    own.reply(client, readHeader(bytes.data()), textMessage(IPC_MSG_CAMERA_LIST, "list", 3));
  };
  const RawPeer peer = introduced();
  peer.send(callMessage(IPC_MSG_CAMERA_LIST, {}, 0x1122334455667788));
  const RedirMsgHeader reply = readHeader(peer.receive().data());
  EXPECT_EQ(callNumber(reply), 0x1122334455667788U);
  EXPECT_EQ(reply.param, 3U);
}

TEST_F(ServerTest, GarbageEndsThatClientOnly) {
  TestServer server(path);
  const RawPeer good = introduced();
  const RawPeer stranger(path);
  stranger.send(Bytes(1000, 'g'));
  EXPECT_TRUE(stranger.ended());
  ASSERT_TRUE(server.awaitWarning());
  EXPECT_NE(server.warnings().front().find("not a message"), std::string::npos);
  EXPECT_TRUE(server.gone().empty()) << "a stranger is nobody's client";
  expectAlive(server);
}

TEST_F(ServerTest, GarbageFromAKnownClientEndsIt) {
  TestServer server(path);
  const RawPeer peer = introduced();
  peer.send(message(IPC_MSG_SHARE, "good"));
  peer.send(Bytes(100, 'g'));
  EXPECT_TRUE(peer.ended());
  ASSERT_TRUE(server.awaitGone());
  EXPECT_NE(server.gone().front().find("not a message"), std::string::npos);
  EXPECT_EQ(server.messages().size(), 1U);
  expectAlive(server);
}

TEST_F(ServerTest, AnOversizedMessageEndsThatClientOnly) {
  TestServer server(path);
  const RawPeer peer = introduced();
  Bytes head = message(IPC_MSG_DATA);
  const std::uint32_t length = 0xFFFFFFFF;
  std::memcpy(head.data() + 8, &length, sizeof length);
  peer.send(head);
  EXPECT_TRUE(peer.ended());
  ASSERT_TRUE(server.awaitGone());
  EXPECT_NE(server.gone().front().find("above the size limit"), std::string::npos);
  expectAlive(server);
}

TEST_F(ServerTest, AnAnnouncedLengthCostsNoMemory) {
  TestServer server(path);
  std::vector<RawPeer> peers;
  rusage before = {};
  ::getrusage(RUSAGE_SELF, &before);
  for (int i = 0; i < 16; ++i) {
    peers.push_back(introduced());
    Bytes head = message(IPC_MSG_DATA);
    std::memcpy(head.data() + 8, &kMaxPayload, sizeof kMaxPayload);
    peers.back().send(head);
  }
  expectAlive(server);
  rusage after = {};
  ::getrusage(RUSAGE_SELF, &after);
  EXPECT_LT(after.ru_maxrss - before.ru_maxrss, 200'000) << "KiB; 16 times 64 MiB were announced";
}

TEST_F(ServerTest, HalfAMessageAndSilenceHarmsNobody) {
  TestServer server(path);
  const RawPeer half = introduced("half");
  const Bytes whole = message(IPC_MSG_DATA, "a payload in two halves");
  half.send(std::span(whole).first(40));
  expectAlive(server);
  half.send(std::span(whole).subspan(40));
  EXPECT_TRUE(eventually([&] { return server.messages().back() == whole; }));
}

TEST_F(ServerTest, WhoDoesNotIntroduceItselfIsDropped) {
  TestServer server(path, {.connectTimeout = milliseconds(100)});
  const RawPeer silent(path);
  const RawPeer half(path);
  const Bytes introduction = message(IPC_MSG_CONNECT_REQUEST);
  half.send(std::span(introduction).first(10));
  EXPECT_TRUE(silent.ended());
  EXPECT_TRUE(half.ended());
  EXPECT_TRUE(server.awaitWarning(2));
  const RawPeer wrong(path);
  wrong.send(message(IPC_MSG_SHARE));
  EXPECT_TRUE(wrong.ended());
  ASSERT_TRUE(server.awaitWarning(3));
  EXPECT_NE(server.warnings().back().find("not a connect request"), std::string::npos);
  expectAlive(server);
}

TEST_F(ServerTest, ANameOfAnyLengthIsNotTaken) {
  TestServer server(path);
  const RawPeer longest = introduced(std::string(256, 'n'));
  const ipc::ClientId client = server.awaitClient();
  EXPECT_EQ(server.clients().at(client), std::string(256, 'n'));
  const RawPeer stranger(path);
  stranger.send(message(IPC_MSG_CONNECT_REQUEST, std::string(257, 'n')));
  EXPECT_TRUE(stranger.ended());
  ASSERT_TRUE(server.awaitWarning());
  EXPECT_NE(server.warnings().front().find("longer than 256 bytes"), std::string::npos);
}

TEST_F(ServerTest, TooManyClientsAreTurnedAway) {
  TestServer server(path, {.clients = 2});
  const RawPeer first = introduced();
  RawPeer second = introduced();
  const RawPeer third(path);
  const Bytes answer = third.receive();
  ASSERT_FALSE(answer.empty());
  EXPECT_EQ(readHeader(answer.data()).param, std::uint32_t{IPC_ERROR_REFUSED});
  EXPECT_TRUE(third.ended());
  second.close();
  ASSERT_TRUE(server.awaitGone());
  const RawPeer fourth = introduced();
}

TEST_F(ServerTest, AStuckClientLosesFramesAndKeepsControlMessages) {
  constexpr std::size_t kFrame = 1U << 20U;
  TestServer server(path, {.queue = {.frames = 3}});
  const RawPeer peer = introduced();
  const ipc::ClientId client = server.awaitClient();
  std::atomic<int> dropped = 0;
  std::atomic<std::uint32_t> left = 0;
  for (std::uint32_t i = 0; i < 100; ++i) {
    server.send(client, {Message(IPC_MSG_DATA, kFrame, i), true,
                         [&](Message& leaving) {
                           leaving.payload()[0] = 1;
                           ++left;
                         },
                         [&] { ++dropped; }});
    if (i % 10 == 0) server.send(client, {textMessage(IPC_MSG_DEVICE_CHANGE, "news", i)});
  }
  const auto counters = server.counters(client);
  EXPECT_EQ(counters.framesDropped, static_cast<std::uint64_t>(dropped));
  EXPECT_GE(dropped, 90);
  EXPECT_LE(counters.bytesQueued, 6 * kFrame) << "memory is bounded";
  expectAlive(server);
  std::uint32_t lastFrame = 0;
  std::uint32_t news = 0;
  std::uint32_t frames = 0;
  while (news < 10 || lastFrame < 99) {
    const Bytes bytes = peer.receive();
    ASSERT_FALSE(bytes.empty());
    const RedirMsgHeader header = readHeader(bytes.data());
    if (header.type == IPC_MSG_DEVICE_CHANGE) {
      EXPECT_EQ(header.param, 10 * news++) << "none is lost, and in order";
    } else {
      EXPECT_GE(header.param, lastFrame);
      EXPECT_EQ(bytes[kHeaderSize], 1) << "touched when it left";
      lastFrame = header.param;
      ++frames;
    }
  }
  EXPECT_EQ(lastFrame, 99U) << "the newest is kept";
  EXPECT_EQ(frames, left);
  EXPECT_EQ(frames + static_cast<std::uint32_t>(dropped), 100U);
}

TEST_F(ServerTest, AClientThatTakesNoControlMessagesIsGivenUp) {
  TestServer server(path, {.queue = {.controlBytes = 100'000}});
  const RawPeer peer = introduced();
  const ipc::ClientId client = server.awaitClient();
  for (int i = 0; i < 600; ++i) {
    server.send(client, {textMessage(IPC_MSG_DEVICE_CHANGE, std::string(1000, 'x'))});
  }
  ASSERT_TRUE(server.awaitGone());
  EXPECT_NE(server.gone().front().find("has stopped reading"), std::string::npos);
  expectAlive(server);
}

TEST_F(ServerTest, CommandsFasterThanTheirAnswersAreReadWait) {
  constexpr std::size_t kCommands = 16'000;
  TestServer server(path);
  server.duringMessage = [](ipc::IpcServer& own, ipc::ClientId client, std::span<unsigned char>) {
    own.send(client, {textMessage(IPC_MSG_DEVICE_CHANGE, std::string(1000, 'x'))});
  };
  const RawPeer peer = introduced();
  const ipc::ClientId client = server.awaitClient();
  std::thread sending([&] {
    Bytes all;
    for (std::size_t i = 0; i < kCommands; ++i) {
      const Bytes one = message(IPC_MSG_SHARE, "{}");
      all.insert(all.end(), one.begin(), one.end());
    }
    peer.send(all);
  });
  ASSERT_TRUE(server.awaitMessages(100));
  std::size_t most = 0;
  std::size_t answers = 0;
  while (answers < kCommands && !peer.receive().empty()) {
    if (++answers % 100 == 1) most = std::max(most, server.counters(client).bytesQueued);
  }
  sending.join();
  EXPECT_EQ(answers, kCommands);
  EXPECT_GT(most, 0U);
  EXPECT_LT(most, std::size_t{128} << 10U) << "memory is bounded";
  EXPECT_TRUE(server.gone().empty());
}

TEST_F(ServerTest, SendingToAClientThatIsGoneIsNothing) {
  TestServer server(path);
  RawPeer peer = introduced();
  const ipc::ClientId client = server.awaitClient();
  peer.close();
  ASSERT_TRUE(server.awaitGone());
  server.send(client, {Message(IPC_MSG_DATA, 10)});
  EXPECT_EQ(server.counters(client).bytesOut, 0U);
}

TEST_F(ServerTest, DisconnectEndsTheClientInsideItsOwnMessage) {
  TestServer server(path);
  server.duringMessage = [](ipc::IpcServer& own, ipc::ClientId client, std::span<unsigned char>) {
    own.disconnect(client, "told so");
  };
  const RawPeer peer = introduced();
  Bytes two = message(IPC_MSG_SHARE, "1");
  two.insert(two.end(), two.begin(), two.end());
  peer.send(two);
  EXPECT_TRUE(peer.ended());
  EXPECT_TRUE(server.awaitGone());
  EXPECT_EQ(server.messages().size(), 1U) << "nothing more of it is read";
}

TEST_F(ServerTest, WithoutDescriptorsItWaitsAndGoesOn) {
#ifdef __SANITIZE_ADDRESS__
  GTEST_SKIP() << "the sanitizer's own checks need descriptors";
#endif
  TestServer server(path);
  const RawPeer known = introduced();
  const RawPeer waiting(path);
  rlimit before = {};
  ::getrlimit(RLIMIT_NOFILE, &before);
  const rlimit none = {openDescriptors(), before.rlim_max};
  std::vector<base::UniqueFd> hoard;
  ::setrlimit(RLIMIT_NOFILE, &none);
  for (int fd = ::dup(0); fd >= 0; fd = ::dup(0)) hoard.emplace_back(fd);
  const ssize_t sent = ::send(known.fd(), message(IPC_MSG_SHARE).data(), kHeaderSize, 0);
  EXPECT_EQ(sent, static_cast<ssize_t>(kHeaderSize));
  EXPECT_TRUE(server.awaitMessages(1)) << "those who are connected are served";
  hoard.clear();
  ::setrlimit(RLIMIT_NOFILE, &before);
  waiting.send(message(IPC_MSG_CONNECT_REQUEST, "late"));
  EXPECT_EQ(readHeader(waiting.receive().data()).type, IPC_MSG_CONNECT_ACCEPT);
}

}  // namespace
}  // namespace lumsar::test
