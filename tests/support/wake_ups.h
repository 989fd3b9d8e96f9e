// How often a program wakes up while nothing happens, which does not depend on how busy the machine
// is: how often its threads have stopped waiting.
#pragma once

#include <sys/types.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <limits>
#include <string>

#include "support/eventually.h"

namespace lumsar::test {

// Of all threads that it has now, since they began.
inline long wakeUps(pid_t process) {
  long sum = 0;
  std::error_code ended;
  const std::string tasks = "/proc/" + std::to_string(process) + "/task";
  for (const auto& task : std::filesystem::directory_iterator(tasks, ended)) {
    std::ifstream status(task.path() / "status");
    const std::string name = "voluntary_ctxt_switches:";
    for (std::string line; std::getline(status, line);) {
      if (line.starts_with(name)) sum += std::atol(line.c_str() + name.size());
    }
  }
  return sum;
}

inline constexpr std::chrono::seconds kIdleWindow{10};
inline constexpr long kIdleWakeUps = 1;  // in that time: less than 0.2 a second

// Whether a program that has nothing to do any more wakes up so seldom, once it has settled. The
// fewest wake-ups in a window are left in `fewest`.
inline bool becomesIdle(pid_t process, long& fewest) {
  constexpr int kWindows = 4;
  fewest = std::numeric_limits<long>::max();
  for (int i = 0; i < kWindows && fewest > kIdleWakeUps; ++i) {
    const long before = wakeUps(process);
    std::this_thread::sleep_for(kIdleWindow);
    fewest = std::min(fewest, wakeUps(process) - before);
  }
  return fewest <= kIdleWakeUps;
}

}  // namespace lumsar::test
