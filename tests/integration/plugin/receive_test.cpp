// The service's messages: camera data on their way to the VM, over SPICE and RDP, and what is
// refused. Device changes are in events_test.cpp.
// Drives the built plug-in through the IPC library's receive callback, on a thread of its own.
#include "support/plugin/plugin_test.h"

namespace lumsar::test {
namespace {

using Receive = PluginTest;
using ReceiveOverSpice = OverSpice<Receive>;
using ReceiveOverRdp = OverRdp<Receive>;

// A message whose header is full of bytes that must pass through.
Bytes fullMessage(std::uint32_t type, const Bytes& payload) {
  Bytes bytes = message(type, payload, 0xA1B2C3D4U);
  for (std::size_t i = 16; i < 32; ++i) bytes[i] = static_cast<unsigned char>(0xE0 + i);
  return bytes;
}

TEST_F(ReceiveOverSpice, CameraDataReachASpiceHostInTheSameBuffer) {
  openSpiceChannel();
  Bytes received = fullMessage(6, pattern(5000));
  EXPECT_EQ(ipc.receive(received), 0);
  const std::vector<Sent> sent = host.takeSent();
  ASSERT_EQ(sent.size(), 1U);
  EXPECT_EQ(sent[0].address, received.data());
  EXPECT_EQ(sent[0].bytes, fullMessage(1, pattern(5000)));
  EXPECT_EQ(received, fullMessage(1, pattern(5000)));
  EXPECT_NE(sent[0].thread, std::this_thread::get_id());
}

TEST_F(ReceiveOverSpice, OnTheCallbacksOwnThread) {
  openSpiceChannel();
  Bytes received = message(6);
  EXPECT_EQ(ipc.receiveHere(received), 0);
  EXPECT_EQ(host.takeSent().at(0).thread, std::this_thread::get_id());
}

class ReceiveResult : public Loose<Receive>, public testing::WithParamInterface<int> {};

TEST_P(ReceiveResult, OfASpiceHostIsPassedOn) {
  startSpice();
  openSpiceChannel();
  host.sendResult = GetParam();
  EXPECT_EQ(ipc.receive(message(6)), GetParam());
}

TEST_P(ReceiveResult, OfAnRdpHostIsPassedOn) {
  startRdp();
  openRdpChannel();
  host.sendResult = GetParam();
  EXPECT_EQ(ipc.receive(message(6)), GetParam());
}

INSTANTIATE_TEST_SUITE_P(Results, ReceiveResult, testing::Values(0, 1, -1, 42));

TEST_F(ReceiveOverSpice, TheCallbacksLengthCountsNotTheHeaders) {
  openSpiceChannel();
  Bytes received = message(6, "abc") + bytesOf("more");
  EXPECT_EQ(ipc.receive(received), 0);
  EXPECT_EQ(host.takeBytes(), std::vector<Bytes>{message(1, "abc") + bytesOf("more")});
}

TEST_F(ReceiveOverSpice, CameraDataForAClosedSpiceChannelAreDropped) {
  Bytes received = message(6, "abc");
  EXPECT_EQ(ipc.receive(received), 30);
  EXPECT_EQ(received, message(6, "abc"));
  EXPECT_EQ(log.take(), Lines{critical("OnReceive: spice channel is NOT opened!")});
}

TEST_F(ReceiveOverRdp, CameraDataForAClosedRdpChannelAreDropped) {
  EXPECT_EQ(ipc.receive(message(6, "abc")), 30);
  EXPECT_EQ(log.take(), Lines{critical("OnReceive: spice channel is NOT opened!")});
}

struct PieceCase {
  std::size_t size;
  std::vector<std::size_t> pieces;
};

class RdpPieces : public OverRdp<Receive>, public testing::WithParamInterface<PieceCase> {};

TEST_P(RdpPieces, AreConsecutiveAndOfThatSize) {
  openRdpChannel();
  Bytes received = fullMessage(6, pattern(GetParam().size - 32));
  EXPECT_EQ(ipc.receive(received), 0);
  Bytes together;
  std::vector<std::size_t> sizes;
  for (const Sent& sent : host.takeSent()) {
    EXPECT_EQ(sent.address, received.data() + together.size()) << "no copy";
    together = together + sent.bytes;
    sizes.push_back(sent.bytes.size());
  }
  EXPECT_EQ(sizes, GetParam().pieces);
  EXPECT_EQ(together, fullMessage(1, pattern(GetParam().size - 32)));
}

INSTANTIATE_TEST_SUITE_P(Sizes, RdpPieces,
                         testing::Values(PieceCase{32, {32}}, PieceCase{1535, {1535}},
                                         PieceCase{1536, {1536}}, PieceCase{1537, {1536, 1}},
                                         PieceCase{3072, {1536, 1536}},
                                         PieceCase{4000, {1536, 1536, 928}}));

TEST_F(ReceiveOverRdp, AFailingPieceDoesNotStopTheRest) {
  openRdpChannel();
  host.sendResults = {-1, 7};
  host.sendResult = 5;
  EXPECT_EQ(ipc.receive(message(6, pattern(3968))), 5);
  EXPECT_EQ(host.takeSent().size(), 3U);
}

TEST_F(ReceiveOverRdp, OnlyTheLastPiecesResultCounts) {
  openRdpChannel();
  host.sendResults = {3, 4, 0};
  EXPECT_EQ(ipc.receive(message(6, pattern(3968))), 0);
  EXPECT_EQ(host.takeSent().size(), 3U);
}

class RdpLength : public OverRdp<Receive>, public testing::WithParamInterface<int> {};

TEST_P(RdpLength, ThatIsNotPositiveSendsNothing) {
  openRdpChannel();
  Bytes received = message(6, "abc");
  host.sendResult = 9;
  EXPECT_EQ(ipc.receive(received.data(), GetParam()), 0);
}

INSTANTIATE_TEST_SUITE_P(Lengths, RdpLength, testing::Values(0, -1, -2147483647 - 1));

// Where the next piece must begin, for sizes too many to be recorded.
const unsigned char* nextPiece = nullptr;
std::size_t brokenPieces = 0;

int followPiece(unsigned char* data, int length) {
  if (data != nextPiece || length < 1 || length > 1536) ++brokenPieces;
  nextPiece = data + length;
  return 0;
}

TEST_F(Receive, AroundEveryMultipleOfThePieceSizeUpToFourMegabytes) {
  ASSERT_EQ(plugin.RdpInit("vm-7", followPiece), 0);
  handle(message(3));
  constexpr int kMost = 4 << 20;
  Bytes all(kMost + 2);
  for (int multiple = 1536; multiple <= kMost; multiple += 1536) {
    for (const int size : {multiple - 1, multiple, multiple + 1}) {
      const Bytes header = message(6);
      std::copy(header.begin(), header.end(), all.begin());
      nextPiece = all.data();
      brokenPieces = 0;
      ASSERT_EQ(ipc.receiveHere(all.data(), size), 0);
      ASSERT_EQ(nextPiece, all.data() + size);
      ASSERT_EQ(brokenPieces, 0U) << size;
    }
  }
  forget();
}

TEST_F(ReceiveOverSpice, SpiceLengthIsPassedOnWhateverItIs) {
  openSpiceChannel();
  Bytes received = message(6, "abc");
  EXPECT_EQ(ipc.receive(received.data(), 33), 0);
  EXPECT_EQ(host.takeSent().at(0).bytes.size(), 33U);
}

TEST_F(ReceiveOverSpice, RdpHostWithoutSendFunctionDropsTheData) {
  openSpiceChannel();
  plugin.DeInit();
  ASSERT_EQ(plugin.RdpInit("vm-7", nullptr), 0);
  forget();
  EXPECT_EQ(ipc.receive(message(6, "abc")), 0) << "the channel is open, nobody sends";
}

TEST_F(ReceiveOverSpice, RdpHostsDataNeverGoToASpiceCallable) {
  plugin.DeInit();
  startRdp();
  openRdpChannel();
  EXPECT_EQ(ipc.receive(message(6, pattern(2000))), 0);
  EXPECT_EQ(host.takeSent().size(), 2U);
}

class UnknownType : public OverSpice<Receive>, public testing::WithParamInterface<std::uint32_t> {};

TEST_P(UnknownType, IsRefused) {
  openSpiceChannel();
  Bytes received = message(GetParam(), "abc");
  EXPECT_EQ(ipc.receive(received), 2);
  EXPECT_EQ(received, message(GetParam(), "abc"));
  EXPECT_EQ(log.take(), Lines{warning("[OnReceive] >>>>Unknown IPC message type[" +
                                      std::to_string(static_cast<int>(GetParam())) + "]<<<<")});
}

INSTANTIATE_TEST_SUITE_P(Types, UnknownType,
                         testing::Values(0U, 1U, 2U, 3U, 4U, 5U, 7U, 9U, 10U, 0x106U, 0x06000000U,
                                         0x7FFFFFFFU, 0xFFFFFFFFU));

class WrongMagic : public OverSpice<Receive>, public testing::WithParamInterface<std::string> {};

TEST_P(WrongMagic, IsRefusedWhateverTheType) {
  openSpiceChannel();
  for (const std::uint32_t type : {6U, 8U, 7U}) {
    Bytes received = message(type, "abc");
    std::copy(GetParam().begin(), GetParam().end(), received.begin());
    EXPECT_EQ(ipc.receive(received), 5);
    EXPECT_EQ(log.take(), Lines{warning("[OnReceive][180] Invalid message magic!")});
  }
}

INSTANTIATE_TEST_SUITE_P(Bytes, WrongMagic,
                         testing::Values("VCAM", "MACv", "mACV", "MBCV", std::string(4, '\0')));

}  // namespace
}  // namespace lumsar::test
