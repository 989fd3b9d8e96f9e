// Pacer: picks from a stream of frames those that keep a given interval.
#pragma once

#include <cstdint>
#include <limits>

namespace lumsar::service {

class Pacer {
 public:
  // Whether the frame of time `now` (µs) is due when frames are `interval` µs apart. Frames come
  // with jitter, so one that is an eighth too early is due; the rhythm is kept over time. It
  // starts over when a frame is late by a full interval, or when the interval or the clock changed.
  bool due(std::int64_t now, std::int64_t interval) {
    if (interval <= 0) return true;
    const bool rhythmLost = now > m_next + interval || m_next - now > 2 * interval;
    if (!rhythmLost && now + interval / 8 < m_next) return false;
    m_next = (rhythmLost ? now : m_next) + interval;
    return true;
  }

 private:
  std::int64_t m_next = std::numeric_limits<std::int64_t>::min() / 2;  // when a frame is due
};

}  // namespace lumsar::service
