// Tests of rate_control.h: a VM that is too slow, one that recovers. Test's main thread.
#include "camera/rate_control.h"

#include <gtest/gtest.h>

namespace lumsar::test {
namespace {

using service::RateControl;

// A VM that takes at most `capacity` frames a second of a camera with `own`, for some seconds.
struct Simulation {
  RateControl control;
  std::int64_t now = 1'000'000;
  std::uint64_t offered = 0;

  void run(int seconds, double own, double capacity) {
    for (int i = 0; i < seconds; ++i) {
      const double given = control.limit() == 0 ? own : std::min(own, control.limit());
      offered += static_cast<std::uint64_t>(given + 0.5);
      now += 1'000'000;
      CameraStatistics statistics;
      statistics.rate = static_cast<std::uint32_t>(std::min(given, capacity) * 1000);
      control.update(statistics, offered, now);
    }
  }
};

TEST(RateControlTest, AVmThatKeepsUpIsNotLimited) {
  Simulation simulation;
  simulation.run(20, 30, 100);
  EXPECT_EQ(simulation.control.interval(), 0);
}

TEST(RateControlTest, FallsToWhatTheVmTakes) {
  Simulation simulation;
  simulation.run(5, 30, 10);
  EXPECT_NEAR(simulation.control.limit(), 10, 3);
  EXPECT_NEAR(static_cast<double>(simulation.control.interval()), 100'000, 30'000);
}

TEST(RateControlTest, OneBadReportIsAnAccident) {
  Simulation simulation;
  simulation.run(5, 30, 100);
  simulation.run(1, 30, 5);
  EXPECT_EQ(simulation.control.interval(), 0);
}

TEST(RateControlTest, RisesAgain) {
  Simulation simulation;
  simulation.run(10, 30, 5);
  EXPECT_LT(simulation.control.limit(), 10);
  simulation.run(30, 30, 100);
  EXPECT_TRUE(simulation.control.limit() == 0 || simulation.control.limit() > 30);
}

TEST(RateControlTest, NeverBelowOneFrameASecond) {
  Simulation simulation;
  simulation.run(10, 30, 0);
  EXPECT_EQ(simulation.control.limit(), 1);
}

TEST(RateControlTest, ReportsTooCloseTogetherDoNotCount) {
  RateControl control;
  CameraStatistics none;
  for (int i = 0; i < 100; ++i) {
    control.update(none, static_cast<std::uint64_t>(i), 1'000'000 + i * 1000);
  }
  EXPECT_EQ(control.interval(), 0);
}

TEST(RateControlTest, ForgetsAll) {
  Simulation simulation;
  simulation.run(10, 30, 5);
  simulation.control.reset();
  EXPECT_EQ(simulation.control.interval(), 0);
}

}  // namespace
}  // namespace lumsar::test
