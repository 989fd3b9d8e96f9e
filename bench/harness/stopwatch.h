// What passes while frames flow: time, or processor time of the processes that take part.
#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "harness/child.h"
#include "harness/rows.h"

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

// The rows of a real connection: the time of a frame, which is to be at least 0.95 of the bare
// transport's rate, and the processor time.
inline std::vector<Row> rowsOfConnection(const std::string& name, double (*floor)(Measured),
                                         double (*here)(Measured)) {
  const auto row = [&](const std::string& of, const char* unit, Measured what, double limit) {
    return Row{name + of, unit, [=] { return floor(what); }, [=] { return here(what); }, limit, 5};
  };
  return {row(": frame of 100 KB through a real connection", "ms", Measured::Time, 1 / 0.95),
          row(": the same, processor time of all", "ms CPU", Measured::Processor, kNoLimit)};
}

}  // namespace lumsar::bench
