// Tests of line_control.h with a simulated line: what it is told is what a line of that capacity
// and delay would bring about. Test's main thread.
#include "camera/line_control.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace lumsar::test {
namespace {

using service::LineControl;

constexpr std::int64_t kMs = 1000;
constexpr std::int64_t kSecond = 1000 * kMs;
constexpr double kFast = 100e6;  // bytes a second
constexpr double kWanted = 870e3;
constexpr double kThin = 250e3;
constexpr double kVeryThin = 37.5e3;

// A camera of 30 frames a second, a line that carries one after another, and a VM that reports at
// once the frames that it is asked to.
class Simulation {
 public:
  explicit Simulation(double bytesPerSecond, std::int64_t delay = 50 * kMs)
      : capacity(bytesPerSecond), m_delay(delay) {
    control.onReceived(0, m_now, kWanted);
  }

  void run(double seconds) {
    worstLatency = 0;
    arrived = asked = 0;
    mostOnTheWay = 0;
    for (const auto end = m_now + static_cast<std::int64_t>(seconds * 1e6); m_now < end;) {
      m_now += kMs;
      carry();
      report();
      if (m_now >= m_nextFrame) offerFrame();
    }
  }
  bool sendAtOnce(std::size_t bytes) { return control.onSent(++sequence, bytes, m_now += kMs); }
  void gap(std::int64_t time) { m_lineFree = std::max(m_lineFree, m_now) + time; }
  // The host's queue overflows.
  void lose(std::size_t frames) {
    for (; frames > 0 && !m_line.empty(); --frames) m_line.pop_front();
  }

  LineControl control;
  double capacity;
  bool vmReports = true;
  bool hasProbes = true;
  std::uint32_t sequence = 0;
  // Since the last run() began.
  std::int64_t worstLatency = 0;
  int arrived = 0;
  int asked = 0;
  std::size_t mostOnTheWay = 0;

 private:
  struct Frame {
    std::uint32_t sequence;
    std::int64_t sent;
    std::int64_t arrival;
    bool isAsked;
  };

  void offerFrame() {
    m_nextFrame += 33 * kMs;
    const bool isProbe = hasProbes && m_now - m_lastSent >= kSecond;
    if (control.fullFor(m_now) > 0 && !isProbe) return;
    const double rate = control.target() > 0 ? std::min(control.target(), kWanted) : kWanted;
    const auto bytes = static_cast<std::size_t>(rate / 30);
    const bool isAsked = control.onSent(++sequence, bytes, m_now);
    if (isAsked) ++asked;
    m_lastSent = m_now;
    const double time = static_cast<double>(bytes) / capacity * 1e6;
    m_lineFree = std::max(m_lineFree, m_now) + static_cast<std::int64_t>(time);
    m_line.push_back({sequence, m_now, m_lineFree + m_delay, isAsked});
    mostOnTheWay = std::max(mostOnTheWay, control.bytesOnTheWay());
  }
  void carry() {
    for (; !m_line.empty() && m_line.front().arrival <= m_now; m_line.pop_front()) {
      worstLatency = std::max(worstLatency, m_now - m_line.front().sent);
      ++arrived;
      if (vmReports && m_line.front().isAsked) {
        m_reports.push_back({m_line.front().sequence, m_now, m_now + m_delay, false});
      }
    }
  }
  void report() {
    for (; !m_reports.empty() && m_reports.front().arrival <= m_now; m_reports.pop_front()) {
      control.onReceived(m_reports.front().sequence, m_now, kWanted);
    }
  }

  const std::int64_t m_delay;
  std::int64_t m_now = kSecond;
  std::int64_t m_nextFrame = m_now;
  std::int64_t m_lineFree = 0;
  std::int64_t m_lastSent = 0;
  std::deque<Frame> m_line;
  std::deque<Frame> m_reports;
};

TEST(ByteRateTest, HoldsNoMoreThanItNeeds) {
  service::ByteRate rate;
  for (std::int64_t now = 0; now < 600 * kSecond; now += 10 * kMs) rate.add(100, now);
  EXPECT_LE(rate.size(), 102U);
  EXPECT_NEAR(rate.rate(600 * kSecond), 10'000, 200);
}

TEST(LineControlTest, AFastLineIsNoLimit) {
  Simulation line(kFast, kMs);
  line.run(30);
  EXPECT_EQ(line.control.target(), 0);
  EXPECT_GE(line.sequence, 30'000U / 33) << "each frame has been sent";
}

TEST(LineControlTest, FewReportsAreAskedForWhileTheLineIsNoLimit) {
  Simulation line(kFast);
  line.run(0.5);
  EXPECT_GE(line.asked, 7) << "of a line of which nothing is known yet";
  line.run(5);
  line.run(10);
  EXPECT_LE(line.asked, 20);
  EXPECT_GE(line.asked, 18);
  line.capacity = kThin;
  line.run(3);
  line.run(5);
  EXPECT_GT(line.asked, 5 * 10) << "of one that has become thin";
}

TEST(LineControlTest, OnesThatAreLostAreAskedForAgain) {
  Simulation line(kFast);
  line.run(10);
  line.vmReports = false;
  line.run(0.6);
  EXPECT_GE(line.asked, 3);
  line.vmReports = true;
  line.run(5);
  EXPECT_LT(line.asked, 15);
  EXPECT_EQ(line.control.target(), 0);
}

TEST(LineControlTest, ALongWayIsNoLimit) {
  Simulation line(kFast, 300 * kMs);
  line.run(30);
  EXPECT_EQ(line.control.target(), 0);
}

TEST(LineControlTest, NorIsABusyMoment) {
  Simulation line(kFast);
  for (int i = 0; i < 10; ++i) {
    line.run(3);
    line.gap(400 * kMs);
  }
  line.run(3);
  EXPECT_EQ(line.control.target(), 0);
}

TEST(LineControlTest, AVmThatDoesNotReportIsNotLimited) {
  LineControl control;
  for (std::uint32_t i = 1; i < 5000; ++i) {
    const std::int64_t now = i * (33 * kMs);
    ASSERT_FALSE(control.onSent(i, 30'000, now)) << "nor asked";
    ASSERT_EQ(control.fullFor(now), 0);
  }
  EXPECT_EQ(control.target(), 0);
  EXPECT_EQ(control.silentFor(kSecond), 0);
  EXPECT_LE(control.bytesOnTheWay(), 1024 * 30'000U) << "does not grow indefinitely";
}

TEST(LineControlTest, FramesHardlyWaitForAThinLine) {
  Simulation line(kThin);
  line.run(5);
  for (int i = 0; i < 6; ++i) {
    line.run(10);
    EXPECT_LT(line.worstLatency, 400 * kMs);
    EXPECT_GT(line.arrived, 10 * 15);
    EXPECT_GT(line.control.target(), 0.6 * kThin);
    EXPECT_LT(line.control.target(), 1.3 * kThin);
    EXPECT_LT(line.mostOnTheWay, static_cast<std::size_t>(0.6 * kThin));
  }
  EXPECT_GT(line.control.waited(), 200 * kMs);
}

TEST(LineControlTest, NorForOneThatIsThinnerThanExpected) {
  Simulation line(kVeryThin);
  line.run(10);
  for (int i = 0; i < 6; ++i) {
    line.run(10);
    EXPECT_LT(line.worstLatency, 600 * kMs);
    EXPECT_GT(line.arrived, 10 * 10);
    EXPECT_GT(line.control.target(), 0.5 * kVeryThin);
  }
}

TEST(LineControlTest, TheFirstFramesDoNotFillALineOfWhichNothingIsKnown) {
  Simulation line(kVeryThin);
  line.run(0.7);
  EXPECT_LE(line.sequence, 2U);
}

TEST(LineControlTest, FollowsALineThatBecomesThinner) {
  Simulation line(kThin);
  line.run(20);
  line.capacity = kVeryThin;
  line.run(10);
  line.run(10);
  EXPECT_LT(line.worstLatency, 600 * kMs);
  EXPECT_LT(line.control.target(), 1.3 * kVeryThin);
}

TEST(LineControlTest, RisesUntilTheLineIsNoLimit) {
  Simulation line(kThin);
  line.run(20);
  EXPECT_GT(line.control.target(), 0);
  line.capacity = kFast;
  line.run(3);
  EXPECT_GT(line.control.target(), 0) << "slowly";
  line.run(40);
  EXPECT_EQ(line.control.target(), 0);
}

TEST(LineControlTest, AGapNeitherFillsTheLineNorRuinsIt) {
  Simulation line(kThin);
  line.run(20);
  const double before = line.control.target();
  line.gap(2 * kSecond);
  line.run(2);
  EXPECT_LT(line.mostOnTheWay, static_cast<std::size_t>(0.6 * kThin));
  EXPECT_GE(line.control.target(), before / 2.1) << "a gap is told once";
  line.run(1);
  line.run(1);
  EXPECT_LT(line.worstLatency, 400 * kMs);
  EXPECT_GT(line.arrived, 15);
  EXPECT_GE(line.control.target(), before / 2.1);
}

TEST(LineControlTest, WhatIsLostOnTheWayIsNotWaitedFor) {
  Simulation line(kThin);
  line.run(10);
  for (int i = 0; i < 20; ++i) {
    line.run(0.5);
    line.lose(2);
  }
  line.run(10);
  EXPECT_GT(line.arrived, 10 * 15);
  EXPECT_LT(line.worstLatency, 400 * kMs);
}

TEST(LineControlTest, AFrameThatFillsTheLineIsReported) {
  Simulation line(kThin);
  line.run(10);
  ASSERT_GT(line.control.target(), 0);
  while (!line.sendAtOnce(1)) {
  }
  EXPECT_FALSE(line.sendAtOnce(1)) << "a moment ago another was";
  EXPECT_TRUE(line.sendAtOnce(static_cast<std::size_t>(kThin)))
      << "else nothing says that it is through";
}

TEST(LineControlTest, TellsForHowLongTheLineHasBeenFull) {
  Simulation line(kThin);
  line.run(20);
  line.hasProbes = false;
  line.vmReports = false;
  line.run(5);
  const std::int64_t now = 26 * kSecond;
  EXPECT_NEAR(static_cast<double>(line.control.fullFor(now)), 5e6, 1e6);
  EXPECT_NEAR(static_cast<double>(line.control.silentFor(now)), 5e6, 1e6);
  line.control.reset();
  EXPECT_EQ(line.control.fullFor(now), 0);
  EXPECT_EQ(line.control.silentFor(now), 0);
  EXPECT_EQ(line.control.target(), 0);
  EXPECT_FALSE(line.control.reports());
}

TEST(LineControlTest, NumbersOfFramesEndAndBeginAgain) {
  LineControl control;
  control.onReceived(0, 0, kWanted);
  control.onSent(0xFFFFFFFF, 100, 1);
  control.onSent(0, 100, 2);
  control.onSent(1, 100, 3);
  control.onReceived(0, 10, kWanted);
  EXPECT_EQ(control.bytesOnTheWay(), 100U);
}

}  // namespace
}  // namespace lumsar::test
