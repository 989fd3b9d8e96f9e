// The growing intervals between retries.
#pragma once

#include <algorithm>
#include <chrono>
#include <utility>

namespace lumsar::base {

class BackOff {
 public:
  using Duration = std::chrono::milliseconds;

  BackOff(Duration first, Duration longest) : m_first(first), m_longest(longest), m_next(first) {}

  // How long to wait now; the time after that doubles.
  Duration next() { return std::exchange(m_next, std::min(m_next * 2, m_longest)); }
  // After a success.
  void reset() { m_next = m_first; }
  // Whether nothing has failed since the last success.
  bool isReset() const { return m_next == m_first; }

 private:
  Duration m_first;
  Duration m_longest;
  Duration m_next;
};

}  // namespace lumsar::base
