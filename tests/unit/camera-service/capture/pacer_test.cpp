// Tests of pacer.h. Test's main thread.
#include "capture/pacer.h"

#include <gtest/gtest.h>

namespace lumsar::test {
namespace {

using service::Pacer;

// How many of `frames` frames, `spacing` µs apart with some jitter, are taken.
int taken(int frames, std::int64_t spacing, std::int64_t interval) {
  Pacer pacer;
  int count = 0;
  for (int i = 0; i < frames; ++i) {
    const std::int64_t jitter = i % 3 * spacing / 30;
    count += pacer.due(1'000'000 + i * spacing + jitter, interval) ? 1 : 0;
  }
  return count;
}

TEST(PacerTest, WithoutIntervalAllAreTaken) {
  EXPECT_EQ(taken(300, 33'333, 0), 300);
}

TEST(PacerTest, ACameraAtTheWantedRateLosesNothing) {
  EXPECT_EQ(taken(300, 33'333, 33'000), 300);
  EXPECT_EQ(taken(300, 33'333, 33'333), 300);
}

TEST(PacerTest, KeepsTheRateOverTime) {
  EXPECT_NEAR(taken(300, 33'333, 100'000), 100, 1);
  EXPECT_NEAR(taken(300, 33'333, 50'000), 200, 2);
  EXPECT_NEAR(taken(300, 33'333, 1'000'000), 10, 1);
}

TEST(PacerTest, AfterAPauseNothingIsMadeUpFor) {
  Pacer pacer;
  EXPECT_TRUE(pacer.due(0, 100'000));
  EXPECT_TRUE(pacer.due(5'000'000, 100'000));
  EXPECT_FALSE(pacer.due(5'010'000, 100'000));
}

TEST(PacerTest, AShorterIntervalCountsAtOnce) {
  Pacer pacer;
  EXPECT_TRUE(pacer.due(0, 10'000'000));
  EXPECT_TRUE(pacer.due(50'000, 33'000));
}

TEST(PacerTest, AClockThatIsSetBackDoesNotStopIt) {
  Pacer pacer;
  EXPECT_TRUE(pacer.due(1'000'000'000, 100'000));
  EXPECT_TRUE(pacer.due(1'000, 100'000));
}

}  // namespace
}  // namespace lumsar::test
