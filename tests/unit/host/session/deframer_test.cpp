// Deframer: what a new channel begins with, and what it holds after a large message.
#include "session/deframer.h"

#include <gtest/gtest.h>

#include "support/messages.h"

namespace lumsar::test {
namespace {

struct Result {
  std::vector<Bytes> messages;
  std::size_t dropped = 0;
};

Result deframe(View stream, std::size_t piece) {
  Result result;
  host::Deframer deframer;
  while (!stream.empty()) {
    const View next = stream.first(std::min(piece, stream.size()));
    stream = stream.subspan(next.size());
    deframer.append(next);
    for (auto message = deframer.next(); !message.empty(); message = deframer.next()) {
      result.messages.emplace_back(message.begin(), message.end());
    }
    result.dropped += deframer.takeDropped();
  }
  return result;
}

const std::vector<std::size_t> kPieces = {1, 7, 32, 40, 1000};
const Bytes kProbe = message(MSG_DATA, record(CameraDataKind::WakeUpProbe, 0));
const Bytes kOpened = message(MSG_CHANNEL_OPENED);

TEST(DeframerTest, AProbeIsNoErrorHoweverItArrives) {
  for (const std::size_t piece : kPieces) {
    const Result result = deframe(join({kProbe, kProbe, kOpened}), piece);
    EXPECT_EQ(result.messages, std::vector<Bytes>{kOpened}) << piece;
    EXPECT_EQ(result.dropped, 0U) << "in pieces of " << piece;
  }
}

TEST(DeframerTest, AnIncompleteProbeDoesNotHideTheHandshake) {
  const View begin = View(kProbe).first(kHeaderSize + 8);
  for (const std::size_t piece : kPieces) {
    const Result result = deframe(join({begin, kOpened, kOpened}), piece);
    EXPECT_EQ(result.messages, (std::vector<Bytes>{kOpened, kOpened})) << "in pieces of " << piece;
  }
}

TEST(DeframerTest, TheTailOfAnOldMessageIsCounted) {
  const Bytes old = message(MSG_DATA, "of another channel");
  for (const std::size_t piece : kPieces) {
    const Result result = deframe(join({View(old).subspan(5), old, kOpened, old}), piece);
    EXPECT_EQ(result.messages, (std::vector<Bytes>{kOpened, old})) << "in pieces of " << piece;
    EXPECT_EQ(result.dropped, 2 * old.size() - 5) << "in pieces of " << piece;
  }
}

TEST(DeframerTest, GivesBackWhatALargeMessageNeeded) {
  host::Deframer deframer;
  deframer.append(message(MSG_HELLO));
  deframer.append(message(MSG_DATA, Bytes(60U << 20U)));
  EXPECT_EQ(deframer.next().size(), kHeaderSize);
  EXPECT_EQ(deframer.next().size(), kHeaderSize + (60U << 20U));
  EXPECT_TRUE(deframer.next().empty());
  EXPECT_LT(deframer.capacity(), 5U << 20U);
}

}  // namespace
}  // namespace lumsar::test
