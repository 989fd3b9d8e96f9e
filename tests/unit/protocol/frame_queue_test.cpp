#include "protocol/frame_queue.h"

#include <gtest/gtest.h>

#include <vector>

namespace lumsar::test {
namespace {

using namespace protocol;

using Queue = FrameQueue<int>;

std::vector<int> rest(Queue& queue) {
  std::vector<int> entries;
  while (auto item = queue.pop()) entries.push_back(item->entry);
  return entries;
}

TEST(FrameQueue, KeepsTheOrder) {
  Queue queue({});
  EXPECT_TRUE(queue.pushControl(1, 0));
  queue.pushFrame(2, 0);
  EXPECT_TRUE(queue.pushControl(3, 0));
  EXPECT_EQ(rest(queue), (std::vector<int>{1, 2, 3}));
  EXPECT_FALSE(queue.pop().has_value());
}

TEST(FrameQueue, DropsTheOldestFramesFirstAndTellsOfThem) {
  std::vector<int> dropped;
  Queue queue({.frames = 2}, [&](int& frame) { dropped.push_back(frame); });
  for (int i = 1; i <= 5; ++i) queue.pushFrame(i, 10);
  EXPECT_EQ(dropped, (std::vector<int>{1, 2, 3}));
  EXPECT_EQ(queue.dropped(), 3U);
  EXPECT_EQ(queue.frames(), 2U);
  EXPECT_EQ(rest(queue), (std::vector<int>{4, 5}));
}

TEST(FrameQueue, NeverDropsControlMessages) {
  Queue queue({.frames = 1});
  EXPECT_TRUE(queue.pushControl(-1, 1));
  for (int i = 0; i < 10; ++i) queue.pushFrame(i, 10);
  EXPECT_TRUE(queue.pushControl(-2, 1));
  for (int i = 10; i < 20; ++i) queue.pushFrame(i, 10);
  EXPECT_EQ(queue.dropped(), 19U);
  EXPECT_EQ(rest(queue), (std::vector<int>{-1, -2, 19}));
}

TEST(FrameQueue, BoundsTheFramesBytesButKeepsTheNewest) {
  Queue queue({.frames = 100, .frameBytes = 1000});
  queue.pushFrame(1, 5000);
  EXPECT_EQ(queue.frames(), 1U);
  queue.pushFrame(2, 600);
  EXPECT_EQ(queue.frames(), 1U);
  queue.pushFrame(3, 100);
  EXPECT_EQ(queue.frames(), 2U);
  queue.pushFrame(4, 600);
  EXPECT_EQ(queue.dropped(), 2U);
  EXPECT_EQ(rest(queue), (std::vector<int>{3, 4}));
}

TEST(FrameQueue, RefusesControlMessagesBeyondTheirLimitButTakesOneHoweverLarge) {
  Queue queue({.controlBytes = 100});
  EXPECT_TRUE(queue.pushControl(1, 600));
  EXPECT_FALSE(queue.pushControl(2, 1));
  queue.pop();
  EXPECT_TRUE(queue.pushControl(3, 60));
  EXPECT_TRUE(queue.pushControl(4, 40));
  EXPECT_FALSE(queue.pushControl(5, 1));
  EXPECT_EQ(rest(queue), (std::vector<int>{3, 4}));
}

TEST(FrameQueue, CountsBytesExactlyAndSaysWhatAnItemIs) {
  Queue queue({});
  queue.pushFrame(1, 10);
  EXPECT_TRUE(queue.pushControl(2, 5));
  EXPECT_EQ(queue.bytes(), 15U);
  const auto frame = queue.pop();
  EXPECT_TRUE(frame->isFrame);
  EXPECT_EQ(frame->size, 10U);
  EXPECT_FALSE(queue.pop()->isFrame);
  EXPECT_EQ(queue.bytes(), 0U);
  EXPECT_TRUE(queue.empty());
}

TEST(FrameQueue, CountsFramesThatAreClearedAsDropped) {
  Queue queue({});
  queue.pushFrame(1, 10);
  EXPECT_TRUE(queue.pushControl(2, 5));
  queue.clear();
  EXPECT_TRUE(queue.empty());
  EXPECT_EQ(queue.dropped(), 1U);
  EXPECT_EQ(queue.frames() + queue.bytes(), 0U);
}

}  // namespace
}  // namespace lumsar::test
