// A step that is too short for one measurement, repeated by Google Benchmark.
#pragma once

#include <benchmark/benchmark.h>

#include <memory>
#include <string>
#include <utility>

#include "harness/rows.h"

namespace lumsar::bench {

namespace detail {

class LastResult : public benchmark::BenchmarkReporter {
 public:
  bool ReportContext(const Context& /*context*/) override { return true; }
  void ReportRuns(const std::vector<Run>& runs) override {
    nanoseconds = runs.back().GetAdjustedCPUTime();
  }
  double nanoseconds = 0;
};

inline std::string newName() {
  static int count = 0;
  return "step" + std::to_string(++count);
}

}  // namespace detail

// Processor time of one run of `step`, in nanoseconds. `begin` makes what the step uses, which is
// destroyed after each measurement.
template <class Begin, class Step>
Measure repeated(Begin begin, Step step) {
  const std::string name = detail::newName();
  benchmark::RegisterBenchmark(name.c_str(), [begin, step](benchmark::State& state) {
    auto used = begin();
    for (auto _ : state) step(*used);
  })->MinTime(0.1);
  return [name] {
    detail::LastResult result;
    benchmark::RunSpecifiedBenchmarks(&result, '^' + name + '/');
    return result.nanoseconds;
  };
}

}  // namespace lumsar::bench
