// From a deadline to what poll() takes.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <limits>

namespace lumsar::base {

// Milliseconds that are left, rounded up; 0 once the deadline has passed.
inline int pollTimeout(std::chrono::steady_clock::time_point deadline) {
  const auto left = deadline - std::chrono::steady_clock::now();
  const std::int64_t count = std::chrono::ceil<std::chrono::milliseconds>(left).count();
  return static_cast<int>(std::clamp<std::int64_t>(count, 0, std::numeric_limits<int>::max()));
}

}  // namespace lumsar::base
