// SendQueue: whole messages in order, pieces of two threads, frames dropped and control kept.
#include "transport/send_queue.h"

#include <gtest/gtest.h>

#include <thread>

#include "support/messages.h"

namespace lumsar::test {
namespace {

using namespace host;

Bytes frame(std::uint8_t mark, std::size_t size = 100) {
  const Bytes body(size, mark);
  return message(MSG_DATA, record(CameraDataKind::Frame, 0, body, cameraClock()));
}

TEST(SendQueue, givesBackWholeMessagesInOrderAndWakesOnceForEach) {
  SendQueue queue;
  int woken = 0;
  queue.setWake([&] { ++woken; });
  EXPECT_EQ(queue.push(hello(7)), 0);
  EXPECT_EQ(queue.push(frame(1)), 0);
  EXPECT_EQ(woken, 2);
  EXPECT_EQ(queue.pop(), hello(7));
  EXPECT_EQ(queue.pop()->at(60), 1);
  EXPECT_EQ(queue.pop(), std::nullopt);
}

TEST(SendQueue, putsThePiecesOfAMessageTogether) {
  SendQueue queue;
  int woken = 0;
  queue.setWake([&] { ++woken; });
  const Bytes whole = frame(3, 4000);
  const View all(whole);
  for (std::size_t at = 0; at < all.size(); at += 1536) {
    EXPECT_EQ(queue.pop(), std::nullopt);
    EXPECT_EQ(queue.push(all.subspan(at, std::min<std::size_t>(1536, all.size() - at))), 0);
  }
  EXPECT_EQ(woken, 1);
  EXPECT_EQ(queue.pop(), whole);
}

TEST(SendQueue, keepsThePiecesOfTwoThreadsApart) {
  SendQueue queue;
  const Bytes whole = frame(3, 4000);
  const View all(whole);
  queue.push(all.first(1536));
  std::thread([&] { queue.push(hello(9)); }).join();
  queue.push(all.subspan(1536));
  EXPECT_EQ(queue.pop(), hello(9));
  EXPECT_EQ(queue.pop(), whole);
}

TEST(SendQueue, dropsTheOldestFramesAndNoControlMessage) {
  SendQueue queue;
  queue.push(hello(1));
  for (std::uint8_t i = 0; i < kSendLimits.frames + 3; ++i) queue.push(frame(i));
  queue.push(hello(2));
  EXPECT_EQ(queue.counters().framesDropped, 3U);
  EXPECT_EQ(queue.pop(), hello(1));
  EXPECT_EQ(queue.pop()->at(60), 3);
  for (std::size_t i = 1; i < kSendLimits.frames; ++i) queue.pop();
  EXPECT_EQ(queue.pop(), hello(2));
  EXPECT_EQ(queue.pop(), std::nullopt);
}

TEST(SendQueue, boundsTheBytesOfFramesButKeepsTheNewest) {
  SendQueue queue;
  queue.push(frame(1, kSendLimits.frameBytes));
  queue.push(frame(2, kSendLimits.frameBytes));
  EXPECT_EQ(queue.counters().framesDropped, 1U);
  EXPECT_EQ(queue.pop()->at(60), 2);
}

TEST(SendQueue, refusesControlMessagesBeyondItsBound) {
  SendQueue queue;
  const Bytes large = message(MSG_UNREDIRECT_ALL, Bytes(kSendLimits.controlBytes / 2));
  EXPECT_EQ(queue.push(large), 0);
  EXPECT_EQ(queue.push(large), -1);
  EXPECT_EQ(queue.counters().messagesRefused, 1U);
  queue.pop();
  EXPECT_EQ(queue.push(large), 0);
}

TEST(SendQueue, refusesWhatIsNoMessage) {
  SendQueue queue;
  Bytes garbage = hello(1);
  garbage[0] = 'X';
  EXPECT_EQ(queue.push(garbage), -1);
  EXPECT_EQ(queue.push(hello(1)), 0);
  EXPECT_EQ(queue.pop(), hello(1));
}

TEST(SendQueue, forgetsHalfMessagesWithTheirChannelAndSkipsTheirRest) {
  SendQueue queue;
  const Bytes whole = frame(3, 4000);
  const View all(whole);
  queue.push(all.first(1536));
  queue.close();
  EXPECT_EQ(queue.push(all.subspan(1536, 1536)), 0);
  queue.open();
  EXPECT_EQ(queue.push(all.subspan(3072)), 0);
  EXPECT_EQ(queue.pop(), std::nullopt);
  queue.push(hello(5));
  EXPECT_EQ(queue.pop(), hello(5));
  EXPECT_EQ(queue.pop(), std::nullopt);
  EXPECT_EQ(queue.counters().messagesRefused, 0U);
}

TEST(SendQueue, nothingLeavesItWhileItIsClosed) {
  SendQueue queue;
  queue.close();
  queue.push(hello(1));
  EXPECT_EQ(queue.pop(), std::nullopt);
  queue.open();
  EXPECT_EQ(queue.pop(), std::nullopt) << "what came up for nobody";
  queue.push(hello(2));
  EXPECT_EQ(queue.pop(), hello(2));
}

// A line that takes so many bytes at once.
struct Line {
  explicit Line(SendQueue& queue, std::size_t capacity = 1U << 20U) : left(capacity) {
    queue.setSendNow([this](View message) {
      const View part = message.first(std::min(left, message.size()));
      taken.insert(taken.end(), part.begin(), part.end());
      left -= part.size();
      return part.size();
    });
    queue.setWake([this] { ++woken; });
  }
  std::size_t left;
  Bytes taken;
  int woken = 0;
};

TEST(SendQueue, anIdleTransportSendsOnThePushingThread) {
  SendQueue queue;
  Line line(queue);
  queue.push(hello(1));
  EXPECT_TRUE(line.taken.empty()) << "the transport may still be sending something";
  EXPECT_EQ(queue.pop(), hello(1));
  queue.push(hello(2));
  EXPECT_TRUE(line.taken.empty()) << "the first message may be on its way";
  EXPECT_EQ(queue.pop(), hello(2));
  EXPECT_EQ(queue.pop(), std::nullopt);
  EXPECT_EQ(queue.push(hello(3)), 0);
  EXPECT_EQ(queue.push(frame(4)), 0);
  EXPECT_EQ(line.taken.size(), hello(3).size() + frame(4).size());
  EXPECT_EQ(line.woken, 2);
  EXPECT_EQ(queue.pop(), std::nullopt);
  EXPECT_EQ(queue.counters().framesSent, 1U);
  EXPECT_EQ(queue.counters().helloToken, 3);
}

TEST(SendQueue, theRestOfAMessageComesFirstAndIsNeverDropped) {
  SendQueue queue;
  Line line(queue, 40);
  EXPECT_EQ(queue.pop(), std::nullopt);
  const Bytes first = frame(1);
  queue.push(first);
  EXPECT_EQ(line.taken.size(), 40U);
  EXPECT_EQ(line.woken, 1);
  line.left = 1000;
  for (std::uint8_t i = 0; i < kSendLimits.frames + 3; ++i) queue.push(frame(i));
  EXPECT_EQ(line.taken.size(), 40U) << "nothing may overtake the rest";
  EXPECT_EQ(queue.counters().framesDropped, 3U);
  EXPECT_EQ(queue.pop(), Bytes(first.begin() + 40, first.end()));
  EXPECT_EQ(queue.pop()->at(60), 3);
}

TEST(SendQueue, aLineThatTakesNothingChangesNothing) {
  SendQueue queue;
  Line line(queue, 0);
  EXPECT_EQ(queue.pop(), std::nullopt);
  queue.push(hello(1));
  EXPECT_EQ(line.woken, 1);
  EXPECT_EQ(queue.pop(), hello(1));
}

TEST(SendQueue, closedOrOpenedAgainItSendsNothingByItself) {
  SendQueue queue;
  Line line(queue);
  EXPECT_EQ(queue.pop(), std::nullopt);
  queue.close();
  queue.push(hello(1));
  queue.open();
  queue.push(hello(2));
  EXPECT_TRUE(line.taken.empty());
  EXPECT_EQ(queue.pop(), hello(2));
}

TEST(SendQueue, fragmentsAreJoinedBeforeTheyAreSent) {
  SendQueue queue;
  Line line(queue);
  EXPECT_EQ(queue.pop(), std::nullopt);
  const Bytes whole = frame(3, 4000);
  const View all(whole);
  queue.push(all.first(1536));
  queue.push(all.subspan(1536));
  EXPECT_TRUE(line.taken.empty());
  EXPECT_EQ(queue.pop(), whole);
}

TEST(SendQueue, countsAndRemembersTheLatestToken) {
  SendQueue queue;
  queue.push(hello(4321));
  queue.push(frame(1, 100));
  queue.pop();
  queue.pop();
  const SendQueue::Counters counters = queue.counters();
  EXPECT_EQ(counters.helloToken, 4321);
  EXPECT_EQ(counters.frames, 1U);
  EXPECT_EQ(counters.framesSent, 1U);
  EXPECT_EQ(counters.bytesSent, 36U + 32 + 16 + 100);
  EXPECT_LT(counters.worstLatency, 10'000'000U);
}

}  // namespace
}  // namespace lumsar::test
