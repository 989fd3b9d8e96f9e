// Tests of clock_stamp.h: digits stay inside the frame, whatever its size. Test's main thread.
#include "capture/clock_stamp.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "support/messages.h"

namespace lumsar::test {
namespace {

using service::drawDigits;
using service::LumaPlane;

constexpr unsigned char kUntouched = 100;

TEST(ClockStampTest, DrawsWhiteOnBlackAtTheBottomLeft) {
  Bytes pixels(160 * 90, kUntouched);
  drawDigits({pixels.data(), 160, 160, 90}, "12:34:56.78");
  EXPECT_GT(std::ranges::count(pixels, 235), 100);
  EXPECT_GT(std::ranges::count(pixels, 16), 100);
  EXPECT_EQ(pixels[0], kUntouched);
  EXPECT_EQ(pixels[89 * 160], 16);
  EXPECT_EQ(pixels[90 * 160 - 1], kUntouched);
}

TEST(ClockStampTest, DifferentTimesLookDifferent) {
  Bytes first(160 * 90);
  Bytes second(160 * 90);
  drawDigits({first.data(), 160, 160, 90}, "12:34:56.78");
  drawDigits({second.data(), 160, 160, 90}, "12:34:56.79");
  EXPECT_NE(first, second);
}

TEST(ClockStampTest, StaysInsideSmallFrames) {
  for (const std::size_t width : {2U, 10U, 64U, 320U}) {
    for (const std::size_t height : {2U, 12U, 13U, 64U}) {
      Bytes pixels((height + 2) * (width + 8), kUntouched);
      drawDigits({pixels.data() + width + 8, width + 8, width, height}, "12:34:56.78");
      for (std::size_t row = 0; row < height + 2; ++row) {
        for (std::size_t x = 0; x < width + 8; ++x) {
          const bool inside = x < width && row > 0 && row <= height;
          ASSERT_TRUE(inside || pixels[row * (width + 8) + x] == kUntouched);
        }
      }
    }
  }
}

}  // namespace
}  // namespace lumsar::test
