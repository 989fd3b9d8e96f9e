#include "camera/line_control.h"

#include <algorithm>

namespace lumsar::service {
namespace {

constexpr std::int64_t kMillisecond = 1000;  // all times in µs
constexpr std::int64_t kSecond = 1000 * kMillisecond;

constexpr std::int64_t kRateSpan = kSecond;
constexpr std::int64_t kShortestRateSpan = 200 * kMillisecond;
constexpr std::int64_t kBaseSpan = 10 * kSecond;
constexpr std::int64_t kLongestBase = kSecond;             // longer is a queue
constexpr std::int64_t kMostWaiting = 200 * kMillisecond;  // a frame waits for the line
constexpr std::int64_t kHardlyAny = 80 * kMillisecond;     // as much as the VM's reports vary
constexpr std::int64_t kPersistent = 500 * kMillisecond;   // else a busy machine, not a thin line
constexpr std::int64_t kGap = 500 * kMillisecond;          // without a report
constexpr std::int64_t kAsksOften = 50 * kMillisecond;
constexpr std::int64_t kAsksSeldom = 500 * kMillisecond;
constexpr std::uint64_t kKnown = 100;  // frames that a line has carried without a limit
constexpr std::int64_t kBetweenRises = 500 * kMillisecond;
constexpr double kRise = 1.05;
constexpr double kKept = 0.85;  // of what was received, so that the queue empties
constexpr double kMostLowered = 0.5;
constexpr double kLeastLowered = 0.9;
constexpr double kSlowest = 4000;           // bytes a second
constexpr double kNoLimit = 1.5;            // of what would be sent without one
constexpr std::size_t kMostTracked = 1024;  // frames
constexpr std::uint64_t kFirst = 2;         // frames on a line of which nothing is known yet
constexpr std::uint64_t kMore = 2;          // and for each that it has carried

// Across the end of the numbers.
bool isAfter(std::uint32_t sequence, std::uint32_t other) {
  return static_cast<std::int32_t>(sequence - other) > 0;
}

}  // namespace

void ByteRate::add(std::size_t bytes, std::int64_t now) {
  if (m_pieces.empty()) m_begin = now;
  m_pieces.push_back({now, bytes});
  forget(now);
}

void ByteRate::forget(std::int64_t now) {
  while (!m_pieces.empty() && m_pieces.front().time < now - kRateSpan) m_pieces.pop_front();
}

double ByteRate::rate(std::int64_t now) {
  forget(now);
  std::size_t bytes = 0;
  for (const Piece& piece : m_pieces) bytes += piece.bytes;
  const auto span = std::clamp(now - m_begin, kShortestRateSpan, kRateSpan);
  return static_cast<double>(bytes) * static_cast<double>(kSecond) / static_cast<double>(span);
}

void LineControl::Lowest::add(std::int64_t value, std::int64_t now) {
  if (now - m_since > kBaseSpan) {
    m_before = now - m_since > 2 * kBaseSpan ? -1 : m_now;
    m_now = -1;
    m_since = now;
  }
  m_now = m_now < 0 ? value : std::min(m_now, value);
}

std::int64_t LineControl::Lowest::get() const {
  const std::int64_t lowest =
      m_before < 0 || m_now < 0 ? std::max(m_before, m_now) : std::min(m_before, m_now);
  return std::clamp<std::int64_t>(lowest, 0, kLongestBase);
}

bool LineControl::asks(std::int64_t now) const {
  if (!m_reports) return false;
  if (isTooMuch()) return true;  // nothing more is sent until it is known to be through
  const bool isWatched =
      m_target > 0 || m_lateSince > 0 || m_carried < kKnown || waiting(silentFor(now)) > kHardlyAny;
  return now - m_lastAsked >= (isWatched ? kAsksOften : kAsksSeldom);
}

bool LineControl::onSent(std::uint32_t sequence, std::size_t bytes, std::int64_t now) {
  m_onTheWay.push_back({sequence, bytes, now, false});
  m_bytesOnTheWay += bytes;
  const bool isAsked = m_onTheWay.back().isAsked = asks(now);
  if (isAsked) m_lastAsked = now;
  m_lastSent = sequence;
  m_sent.add(bytes, now);
  if (m_onTheWay.size() > kMostTracked) {
    m_bytesOnTheWay -= m_onTheWay.front().bytes;
    m_onTheWay.pop_front();
  }
  return isAsked;
}

void LineControl::onReceived(std::uint32_t sequence, std::int64_t now, double wanted) {
  const bool afterGap = m_reports && now - m_lastReport > kGap && silentFor(now) > kGap;
  m_reports = true;
  m_lastReport = now;
  std::int64_t delay = -1;
  std::size_t bytes = 0;
  while (!m_onTheWay.empty() && !isAfter(m_onTheWay.front().sequence, sequence)) {
    bytes += m_onTheWay.front().bytes;
    delay = now - m_onTheWay.front().time;
    m_onTheWay.pop_front();
    ++m_carried;
  }
  m_bytesOnTheWay -= bytes;
  if (delay < 0) return;
  m_received.add(bytes, now);
  m_base.add(delay, now);
  // What was on the way during a gap waited for its end, and what was sent behind it for that: they
  // tell nothing of the line's rate.
  if (afterGap) m_sentInGap = m_lastSent;
  if (m_sentInGap && isAfter(sequence, *m_sentInGap)) m_sentInGap.reset();
  if (m_sentInGap) m_judgeAfter = m_lastSent;
  judge(sequence, delay, now);
  if (m_target > 0 && waiting(delay) < kHardlyAny) rise(now, wanted);
}

std::int64_t LineControl::waiting(std::int64_t delay) const {
  return delay - m_base.get();
}

void LineControl::judge(std::uint32_t sequence, std::int64_t delay, std::int64_t now) {
  const bool late = waiting(delay) > kMostWaiting;
  if (!isPersistent(late, now)) return;
  if (m_target == 0 || isAfter(sequence, m_judgeAfter)) lower(waiting(delay), now);
}

// A line that was no limit until now is given some time.
bool LineControl::isPersistent(bool late, std::int64_t now) {
  if (!late) {
    m_lateSince = 0;
    return false;
  }
  if (m_lateSince == 0) m_lateSince = now;
  return m_target > 0 || now - m_lateSince > kPersistent;
}

// What was on the way before does not tell whether that was enough.
void LineControl::lower(std::int64_t waited, std::int64_t now) {
  const double from = m_target > 0 ? m_target : m_sent.rate(now);
  m_target = std::clamp(kKept * m_received.rate(now), kMostLowered * from, kLeastLowered * from);
  m_target = std::max(m_target, kSlowest);
  m_waited = waited;
  m_judgeAfter = m_lastSent;
  m_lastChange = now;
}

void LineControl::rise(std::int64_t now, double wanted) {
  if (now - m_lastChange < kBetweenRises) return;
  m_lastChange = now;
  m_target *= kRise;
  if (wanted > 0 && m_target > kNoLimit * wanted) m_target = 0;
}

std::int64_t LineControl::fullFor(std::int64_t now) {
  if (!m_reports) return 0;
  const std::int64_t silent = silentFor(now);
  if (waiting(silent) > kMostWaiting) judge(oldestAsked()->sequence, silent, now);
  if (!isFull(now)) return m_fullSince = 0;
  if (m_fullSince == 0) m_fullSince = now;
  return std::max<std::int64_t>(1, now - m_fullSince);
}

std::int64_t LineControl::silentFor(std::int64_t now) const {
  const auto oldest = oldestAsked();
  return !m_reports || oldest == m_onTheWay.end() ? 0 : now - oldest->time;
}

std::deque<LineControl::Sent>::const_iterator LineControl::oldestAsked() const {
  return std::ranges::find_if(m_onTheWay, &Sent::isAsked);
}

bool LineControl::isTooMuch() const {
  if (m_target == 0) return m_onTheWay.size() >= kFirst + kMore * m_carried;
  return static_cast<double>(m_bytesOnTheWay) >
         m_target * static_cast<double>(longestInTime()) / static_cast<double>(kSecond);
}

// Only until a report that has been asked for; without one nothing would end it.
bool LineControl::isFull(std::int64_t now) const {
  if (m_target > 0 && silentFor(now) > longestInTime()) return true;
  return isTooMuch() && oldestAsked() != m_onTheWay.end();
}

std::int64_t LineControl::longestInTime() const {
  return m_base.get() + kMostWaiting;
}

}  // namespace lumsar::service
