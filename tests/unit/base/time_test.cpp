// Durations, deadlines, back-off and latencies.
#include <gtest/gtest.h>

#include "base/back_off.h"
#include "base/deadline.h"
#include "base/errors.h"
#include "base/latency.h"
#include "base/text/duration.h"
#include "support/text.h"

namespace lumsar::test {
namespace {

using namespace base;
using namespace std::chrono_literals;

TEST(Duration, TakesAllUnitsAndFractions) {
  EXPECT_EQ(parseDuration("250ms"), 250ms);
  EXPECT_EQ(parseDuration("10"), 10s);
  EXPECT_EQ(parseDuration("10s"), 10s);
  EXPECT_EQ(parseDuration("1.5s"), 1500ms);
  EXPECT_EQ(parseDuration("2.5m"), 150s);
  EXPECT_EQ(parseDuration("8h"), 8h);
  EXPECT_EQ(parseDuration("0"), 0ms);
  EXPECT_EQ(parseDuration("10000h"), 10000h);
}

std::string refusal(const char* duration) {
  return errorOf<UsageError>([&] { parseDuration(duration); });
}

TEST(Duration, RefusesTheRestAndSaysWhatIsExpected) {
  for (const char* bad : {"", "soon", "5x", "1day", "-1s", "+1s", "nan", "inf", "ms", " 5s", "5 s",
                          "1e9h", "0x10", "5s5s", "1e3"}) {
    EXPECT_NE(refusal(bad).find("is not a valid duration; expected"), std::string::npos) << bad;
    EXPECT_NE(refusal(bad).find("such as 10s"), std::string::npos) << bad;
  }
  const std::string huge(400, '9');
  for (const char* bad : {"10001h", "99999999999", huge.c_str()}) {
    EXPECT_NE(refusal(bad).find("at most 10000h"), std::string::npos) << bad;
  }
}

TEST(BackOff, DoublesUpToItsLongestAndBeginsAgain) {
  BackOff pause(200ms, 1s);
  EXPECT_TRUE(pause.isReset());
  for (const auto expected : {200ms, 400ms, 800ms, 1000ms, 1000ms}) {
    EXPECT_EQ(pause.next(), expected);
    EXPECT_FALSE(pause.isReset());
  }
  pause.reset();
  EXPECT_TRUE(pause.isReset());
  EXPECT_EQ(pause.next(), 200ms);
}

TEST(Deadline, IsWhatIsLeftRoundedUp) {
  const auto now = std::chrono::steady_clock::now();
  EXPECT_EQ(pollTimeout(now - 1h), 0);
  EXPECT_GT(pollTimeout(now + 1h), 3'590'000);
  EXPECT_LE(pollTimeout(now + 1h), 3'600'000);
  EXPECT_EQ(pollTimeout(now + 24h * 365), std::numeric_limits<int>::max());
}

TEST(Latencies, KnowMedianPercentilesAndWorst) {
  Latencies latencies;
  EXPECT_EQ(latencies.median(), 0U);
  for (const std::uint64_t value : {5U, 100U, 7U}) latencies.add(value);
  EXPECT_EQ(latencies.median(), 7U);
  EXPECT_EQ(latencies.percentile(99), 100U);
  EXPECT_EQ(latencies.worst(), 100U);
  for (int i = 0; i < 100000; ++i) latencies.add(50);
  EXPECT_EQ(latencies.median(), 50U);
  EXPECT_EQ(latencies.worst(), 100U);
  for (int i = 0; i < 50; ++i) latencies.add(90);
  EXPECT_EQ(latencies.percentile(98), 50U);
  EXPECT_EQ(latencies.percentile(99), 90U);
  latencies.clear();
  EXPECT_EQ(latencies.worst(), 0U);
}

}  // namespace
}  // namespace lumsar::test
