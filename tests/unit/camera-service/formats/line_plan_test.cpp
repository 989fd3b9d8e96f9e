// Tests of line_plan.h: what becomes of a plan on lines that are ever thinner. Test's main thread.
#include "formats/line_plan.h"

#include <gtest/gtest.h>

#include "lumsar/camera_data.h"

namespace lumsar::test {
namespace {

using service::byteRate;
using service::CapturePlan;
using service::Detail;

CapturePlan fullPlan(std::uint32_t encoding = kEncodingMjpg) {
  CapturePlan plan;
  plan.source = {"I420", 1280, 720, 30, 1};
  plan.width = 1280;
  plan.height = 720;
  plan.encoding = encoding;
  plan.quality = 50;
  return plan;
}

CapturePlan on(double line, const CapturePlan& full = fullPlan(), const CapturePlan& now = {}) {
  return planForLine(full, line, Detail(), now);
}

TEST(LinePlanTest, ALineThatIsNoLimitChangesNothing) {
  for (const std::uint32_t encoding : {kEncodingMjpg, kEncodingH264}) {
    const CapturePlan full = fullPlan(encoding);
    for (const double line : {0.0, 2e6}) {
      const CapturePlan plan = on(line, full);
      EXPECT_FALSE(plan.isThinned);
      EXPECT_EQ(plan.quality, 50);
      EXPECT_EQ(plan.interval, 0);
      EXPECT_EQ(plan.width, 1280);
      EXPECT_EQ(plan.bitRate, 0);
    }
  }
}

TEST(LinePlanTest, QualityFirstThenRateThenSizeThenRateAgain) {
  const CapturePlan quality = on(500e3);
  EXPECT_LT(quality.quality, 50);
  EXPECT_EQ(quality.interval, 0);
  EXPECT_EQ(quality.width, 1280);
  const CapturePlan rate = on(210e3);
  EXPECT_EQ(rate.quality, 12);
  EXPECT_GT(rate.interval, 33'333);
  EXPECT_LE(rate.interval, 58'823);
  EXPECT_EQ(rate.width, 1280);
  const CapturePlan size = on(37.5e3);
  EXPECT_EQ(size.interval, 58'823);
  EXPECT_LT(size.width, 1280);
  EXPECT_NEAR(size.width * 9.0 / 16, size.height, 2);
  EXPECT_GT(size.quality, 12) << "what is left of the line is for quality";
  const CapturePlan least = on(5e3);
  EXPECT_EQ(least.width, 320);
  EXPECT_EQ(least.height, 180);
  EXPECT_GT(least.interval, 58'823);
  EXPECT_LE(least.interval, 200'000);
}

TEST(LinePlanTest, NeverMoreThanTheLineTakes) {
  for (const std::uint32_t encoding : {kEncodingMjpg, kEncodingH264}) {
    double line = 12e3;
    for (int i = 0; i < 58; ++i, line *= 1.1) {
      const CapturePlan plan = on(line, fullPlan(encoding));
      EXPECT_LE(byteRate(plan, Detail()), 1.01 * line) << line;
      if (plan.isThinned && encoding == kEncodingMjpg) {
        EXPECT_GE(byteRate(plan, Detail()), 0.75 * line) << line;
      }
      EXPECT_EQ(plan.isThinned, byteRate(fullPlan(encoding), Detail()) > line) << line;
    }
  }
}

TEST(LinePlanTest, H264HasTheRateOfTheLine) {
  const CapturePlan plan = on(212e3, fullPlan(kEncodingH264));
  EXPECT_EQ(plan.bitRate, 8 * 212e3);
  EXPECT_EQ(plan.width, 1280);
  EXPECT_EQ(plan.interval, 0);
  const CapturePlan small = on(32e3, fullPlan(kEncodingH264));
  EXPECT_EQ(small.bitRate, 8 * 32e3);
  EXPECT_LT(small.width, 1280);
  EXPECT_EQ(small.width % 2, 0);
  EXPECT_EQ(small.height % 2, 0);
}

TEST(LinePlanTest, ALargerSizeNeedsRoomToSpare) {
  const CapturePlan full = fullPlan(kEncodingH264);
  const CapturePlan small = on(32e3, full);
  double line = 32e3;
  while (on(line, full).width == small.width) line *= 1.01;
  EXPECT_EQ(on(line, full, small).width, small.width);
  EXPECT_GT(on(1.5 * line, full, small).width, small.width);
  EXPECT_GT(on(line, full, on(line, full)).width, small.width) << "and stays";
}

TEST(LinePlanTest, ASlowCameraIsNotMadeFaster) {
  CapturePlan full = fullPlan();
  full.interval = 500'000;
  const CapturePlan plan = on(10e3, full);
  EXPECT_TRUE(plan.isThinned);
  EXPECT_EQ(plan.interval, 500'000);
  EXPECT_LT(plan.quality, 50);
}

TEST(LinePlanTest, QualityNeverExceedsThePolicys) {
  CapturePlan full = fullPlan();
  full.quality = 8;
  EXPECT_LE(on(1e3, full).quality, 8);
}

TEST(LinePlanTest, FollowsWhatTheCameraSees) {
  Detail detail;
  for (int i = 0; i < 100; ++i) detail.add(100'000, 1280 * 720, 50);
  EXPECT_NEAR(byteRate(fullPlan(), detail), 3e6, 1e5);
  Detail coarse;
  for (int i = 0; i < 100; ++i) coarse.add(100'000, 1280 * 720, 15);
  EXPECT_GT(coarse.get(), 1.5 * detail.get()) << "as much in spite of less quality";
  detail.add(0, 0, 50);
  EXPECT_NEAR(byteRate(fullPlan(), detail), 3e6, 1e5);
}

}  // namespace
}  // namespace lumsar::test
