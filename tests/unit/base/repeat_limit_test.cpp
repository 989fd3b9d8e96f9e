#include "base/repeat_limit.h"

#include <gtest/gtest.h>

namespace lumsar::test {
namespace {

using namespace std::chrono_literals;
using base::RepeatLimit;

const std::string kOnlyCountedFromNow = " (more lines like this one are only counted for a minute)";

// The times are the test's own: a slow machine must not end a minute.
class RepeatLimitTest : public testing::Test {
 protected:
  std::optional<std::string> admit(std::chrono::seconds after, std::string_view kind = "kind") {
    return m_limit.admit(kind, m_begin + after);
  }

  RepeatLimit m_limit{2};

 private:
  RepeatLimit::Clock::time_point m_begin = RepeatLimit::Clock::now();
};

TEST_F(RepeatLimitTest, SaysHowManyWereLeftOutWhenTheNextMinuteBegins) {
  EXPECT_EQ(admit(0s), "");
  EXPECT_EQ(admit(1s), kOnlyCountedFromNow);
  for (int i = 0; i < 7; ++i) EXPECT_EQ(admit(59s), std::nullopt);
  EXPECT_EQ(admit(60s), " (7 lines like this one were left out)");
  EXPECT_EQ(admit(61s), kOnlyCountedFromNow);
  EXPECT_EQ(admit(119s), std::nullopt);
}

TEST_F(RepeatLimitTest, SaysNothingOfAMinuteInWhichNothingWasLeftOut) {
  EXPECT_EQ(admit(0s), "");
  EXPECT_EQ(admit(1s), kOnlyCountedFromNow);
  EXPECT_EQ(admit(60s), "");
}

TEST_F(RepeatLimitTest, CountsEachKindByItself) {
  EXPECT_EQ(admit(0s), "");
  EXPECT_EQ(admit(0s, "other"), "");
  EXPECT_EQ(admit(0s), kOnlyCountedFromNow);
  EXPECT_EQ(admit(0s), std::nullopt);
  EXPECT_EQ(admit(0s, "other"), kOnlyCountedFromNow);
}

TEST_F(RepeatLimitTest, AdmitsEverythingWithoutALimit) {
  m_limit.set(0);
  for (int i = 0; i < 100; ++i) EXPECT_EQ(admit(0s), "");
}

}  // namespace
}  // namespace lumsar::test
