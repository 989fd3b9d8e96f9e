// What passes while frames flow: time, or processor time of the processes that take part.
#pragma once

#include <chrono>
#include <functional>
#include <utility>
#include <vector>

#include "harness/child.h"

namespace lumsar::bench {

using Millis = std::chrono::duration<double, std::milli>;
using Stopwatch = std::function<Millis()>;

enum class Measured { Time, Processor };

// `processes` as of processorTime().
inline Stopwatch stopwatch(Measured what, std::vector<pid_t> processes) {
  if (what == Measured::Time) {
    return [] { return Millis(std::chrono::steady_clock::now().time_since_epoch()); };
  }
  return [processes = std::move(processes)] {
    Millis sum{};
    for (const pid_t process : processes) sum += processorTime(process);
    return sum;
  };
}

}  // namespace lumsar::bench
