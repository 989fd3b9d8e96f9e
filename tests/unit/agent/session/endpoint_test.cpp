// Endpoint: handshake byte for byte, messages from pieces, the way back after garbage.
#include "session/endpoint.h"

#include <gtest/gtest.h>

#include "support/messages.h"

namespace lumsar::test {
namespace {

using namespace agent;

class EndpointTest : public testing::Test, public EndpointEvents {
 protected:
  void start(EndpointSettings settings = {}) {
    endpoint.emplace(settings, *this, "host");
    endpoint->opened();
  }
  void receive(View bytes) {
    while (!bytes.empty()) {
      const auto room = endpoint->room();
      const std::size_t size = std::min(room.size(), bytes.size());
      std::copy_n(bytes.begin(), size, room.begin());
      endpoint->received(size);
      bytes = bytes.subspan(size);
    }
  }
  void receiveInPieces(const Bytes& all, std::size_t size) {
    for (std::size_t at = 0; at < all.size(); at += size) {
      receive(View(all).subspan(at, std::min(size, all.size() - at)));
    }
  }

  void send(View message) override { sent.emplace_back(message.begin(), message.end()); }
  void established(const RedirMsgHeader& /*header*/, std::uint16_t token) override {
    tokens.push_back(token);
  }
  void takeRecord(View record) override { records.emplace_back(record.begin(), record.end()); }
  void unredirectAll() override { ++unredirects; }
  void streamFault() override { ++faults; }

  std::optional<Endpoint> endpoint;
  std::vector<Bytes> sent;
  std::vector<std::uint16_t> tokens;
  std::vector<Bytes> records;
  int unredirects = 0;
  int faults = 0;
};

const Bytes kChannelOpened{0x4D, 0x41, 0x43, 0x56, 3, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
                           0,    0,    0,    0,    0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};

TEST_F(EndpointTest, SpiceSaysNothingUntilTheHostGreets) {
  start();
  EXPECT_TRUE(sent.empty());
  receive(hello(0x1234));
  const Bytes answer{0x4D, 0x41, 0x43, 0x56, 0, 0, 0, 0, 4, 0, 0, 0, 0, 0, 0,    0,    1, 1,
                     1,    1,    3,    0,    0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x34, 0x12, 1, 0};
  ASSERT_EQ(sent.size(), 1U);
  EXPECT_EQ(sent[0], answer);
  EXPECT_TRUE(endpoint->established());
}

TEST_F(EndpointTest, ProbesASpiceHostThatHasNotGreeted) {
  start();
  endpoint->sendWakeUpProbe();
  ASSERT_EQ(sent.size(), 1U);
  Bytes probe = message(MSG_DATA, record(CameraDataKind::WakeUpProbe, 0));
  ASSERT_EQ(sent[0].size(), kHeaderSize + sizeof(CameraDataHeader));
  const auto time = probe.end() - 8;
  std::copy(sent[0].end() - 8, sent[0].end(), time);
  EXPECT_EQ(sent[0], probe);
  receive(hello(1));
  sent.clear();
  endpoint->sendWakeUpProbe();
  EXPECT_TRUE(sent.empty());
}

TEST_F(EndpointTest, DoesNotProbeAnRdpHost) {
  start({.protocol = Protocol::Rdp});
  sent.clear();
  endpoint->sendWakeUpProbe();
  EXPECT_TRUE(sent.empty());
}

TEST_F(EndpointTest, RdpSaysFirstThatTheChannelIsOpen) {
  start({.protocol = Protocol::Rdp, .session = 0x0203, .shareAll = true});
  ASSERT_EQ(sent.size(), 1U);
  EXPECT_EQ(sent[0], kChannelOpened);
  receive(hello(9999, 0x13));
  const Bytes answer{0x4D, 0x41, 0x43, 0x56, 0, 0, 0, 0, 4, 0, 0, 0, 0, 0, 0,    0,    1, 1,
                     1,    1,    0x13, 0,    0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x0F, 0x27, 3, 2};
  ASSERT_EQ(sent.size(), 2U);
  EXPECT_EQ(sent[1], answer);
}

TEST_F(EndpointTest, TellsItsVersionAndForTestsAWrongToken) {
  start({.vmMajor = 1, .vmMinor = 0, .wrongToken = true});
  receive(hello(65535));
  ASSERT_EQ(sent.size(), 1U);
  EXPECT_EQ(sent[0][18], 1);
  EXPECT_EQ(sent[0][19], 0);
  EXPECT_EQ(sent[0][32], 0);
  EXPECT_EQ(sent[0][33], 0);
}

TEST_F(EndpointTest, EveryHelloIsAnsweredAndBeginsAnew) {
  start();
  receive(join({hello(1), hello(2)}));
  EXPECT_EQ(tokens, (std::vector<std::uint16_t>{1, 2}));
  EXPECT_EQ(sent.size(), 2U);
}

TEST_F(EndpointTest, AssemblesPiecesOfEverySize) {
  const Bytes data(100, 0x42);
  const Bytes all = join({hello(7), message(MSG_DATA, data), message(MSG_UNREDIRECT_ALL),
                          message(MSG_DATA), message(MSG_DATA, data)});
  for (std::size_t size = 1; size <= all.size(); ++size) {
    SCOPED_TRACE(size);
    records.clear();
    unredirects = 0;
    start();
    receiveInPieces(all, size);
    EXPECT_EQ(records, (std::vector<Bytes>{data, {}, data}));
    EXPECT_EQ(unredirects, 1);
  }
  EXPECT_EQ(faults, 0);
}

TEST_F(EndpointTest, AssemblesLargeFramesFromRdpFragments) {
  start({.protocol = Protocol::Rdp});
  receive(hello(7));
  for (const std::size_t size : {1536U, 1535U, 1537U, 3072U, 1536U - 32U, 4U << 20U}) {
    const Bytes data(size, 0x99);
    receiveInPieces(message(MSG_DATA, data), 1536);
    ASSERT_FALSE(records.empty());
    EXPECT_EQ(records.back(), data);
    records.clear();
  }
}

TEST_F(EndpointTest, UnknownTypesAreSkipped) {
  start();
  receive(join({hello(7), message(77, bytesOf("abc")), message(MSG_DATA, bytesOf("x"))}));
  EXPECT_EQ(records, std::vector<Bytes>{bytesOf("x")});
  EXPECT_EQ(faults, 0);
}

TEST_F(EndpointTest, DropsEverythingBeforeTheFirstHello) {
  const Bytes tail(5000, 0x4D);
  const Bytes rest = join({tail, bytesOf("MACV"), message(MSG_DATA, bytesOf("old")),
                           message(MSG_UNREDIRECT_ALL), message(0, bytesOf("a bad hello"))});
  for (const std::size_t size : {1U, 31U, 100U, 100000U}) {
    SCOPED_TRACE(size);
    tokens.clear();
    start();
    receiveInPieces(join({rest, hello(5), message(MSG_DATA, bytesOf("new"))}), size);
    EXPECT_EQ(tokens, std::vector<std::uint16_t>{5});
    EXPECT_EQ(endpoint->droppedBytes(), rest.size());
    EXPECT_EQ(records, std::vector<Bytes>{bytesOf("new")});
    EXPECT_EQ(unredirects, 0);
    records.clear();
  }
}

TEST_F(EndpointTest, GarbageInASessionEndsItUntilTheNextHello) {
  start();
  receive(join({hello(1), bytesOf("garbage"), message(MSG_DATA, bytesOf("lost"))}));
  EXPECT_EQ(faults, 1);
  EXPECT_TRUE(records.empty());
  EXPECT_FALSE(endpoint->established());
  receive(join({hello(2), message(MSG_DATA, bytesOf("good"))}));
  EXPECT_EQ(records, std::vector<Bytes>{bytesOf("good")});
}

TEST_F(EndpointTest, OverRdpABrokenSessionIsBegunAnewByTheVm) {
  start({.protocol = Protocol::Rdp});
  receive(join({hello(1), bytesOf("garbage")}));
  ASSERT_EQ(sent.size(), 3U);
  EXPECT_EQ(sent[2], kChannelOpened);
}

TEST_F(EndpointTest, AnImpossibleLengthIsAFaultAndHoldsNoMemory) {
  start();
  Bytes huge = message(MSG_DATA);
  huge[11] = 0x80;  // 2 GB
  receive(join({hello(1), huge}));
  EXPECT_EQ(faults, 1);
  for (int i = 0; i < 100; ++i) receive(Bytes(1U << 20U, 0x11));
  EXPECT_GE(endpoint->droppedBytes(), 100U << 20U);
  receive(hello(2));
  EXPECT_EQ(tokens.back(), 2);
}

TEST_F(EndpointTest, AHelloBehindAMessageCutShortIsFoundWhenNothingMoreComes) {
  start();
  Bytes half = message(MSG_DATA, Bytes(100000, 0x33));
  half.resize(50000);
  receive(join({hello(1), half, hello(2)}));
  EXPECT_EQ(tokens, std::vector<std::uint16_t>{1});
  endpoint->dropStalled();
  EXPECT_EQ(tokens, (std::vector<std::uint16_t>{1, 2}));
  receive(message(MSG_DATA, bytesOf("good")));
  EXPECT_EQ(records, std::vector<Bytes>{bytesOf("good")});
}

TEST_F(EndpointTest, OfSeveralMessagesCutShortEachIsDropped) {
  start();
  Bytes half = message(MSG_DATA, Bytes(100000, 0x33));
  half.resize(20000);
  receive(join({hello(1), half, hello(2), half, hello(3)}));
  EXPECT_TRUE(endpoint->dropStalled());
  EXPECT_TRUE(endpoint->dropStalled());
  EXPECT_FALSE(endpoint->dropStalled());
  EXPECT_EQ(tokens, (std::vector<std::uint16_t>{1, 2, 3}));
}

TEST_F(EndpointTest, HalfAMessageAndSilenceIsWaitedFor) {
  start();
  const Bytes whole = message(MSG_DATA, Bytes(1000, 0x33));
  receive(join({hello(1), Bytes(whole.begin(), whole.begin() + 500)}));
  endpoint->dropStalled();
  endpoint->dropStalled();
  receive(View(whole).subspan(500));
  EXPECT_EQ(records.size(), 1U);
  EXPECT_EQ(faults, 0);
}

TEST_F(EndpointTest, ANewConnectionForgetsTheOldBytes) {
  start();
  receive(join({hello(1), Bytes(10, 0x4D)}));
  endpoint->closed();
  endpoint->opened();
  receive(hello(2));
  EXPECT_EQ(tokens.back(), 2);
}

}  // namespace
}  // namespace lumsar::test
