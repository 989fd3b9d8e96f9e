// A step counted in instructions: what else the machine does changes nothing, so that a step of a
// few nanoseconds can be compared with a later version's.
#pragma once

#include <functional>
#include <utility>

#include "harness/rows.h"

namespace lumsar::bench {

// Makes what a step uses, and gives the step.
using PrepareStep = std::function<std::function<void()>()>;

// Instructions of one run of the step, its callees included. This program is run once more for it,
// under valgrind.
Measure countedStep(PrepareStep prepare);

template <class Begin, class Step>
Measure counted(Begin begin, Step step) {
  return countedStep([begin, step] { return [used = begin(), step] { step(*used); }; });
}

// That run: the step of this number.
int runCountedStep(std::size_t number);
inline constexpr const char* kCountOption = "--count-step";

}  // namespace lumsar::bench
