// RateLimit: how often something may happen within a time. Not thread-safe.
#pragma once

#include <chrono>

namespace lumsar::base {

class RateLimit {
 public:
  RateLimit(int most, std::chrono::seconds time) : m_most(most), m_time(time) {}

  // Counts it. False when it has happened often enough.
  bool allow() {
    const auto now = std::chrono::steady_clock::now();
    if (now - m_since > m_time) {
      m_since = now;
      m_count = 0;
    }
    return ++m_count <= m_most;
  }

 private:
  int m_most;
  std::chrono::seconds m_time;
  std::chrono::steady_clock::time_point m_since;
  int m_count = 0;
};

}  // namespace lumsar::base
