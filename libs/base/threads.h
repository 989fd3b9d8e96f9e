// Whether this process may start more threads, so that what fails without them can be left alone
// and its cause be named.
#pragma once

#include <cstddef>
#include <latch>
#include <system_error>
#include <thread>
#include <vector>

namespace lumsar::base {

// By starting that many.
inline bool hasSpareThreads(std::size_t count) {
  std::latch counted(1);
  std::vector<std::jthread> threads;
  try {
    while (threads.size() < count) threads.emplace_back([&counted] { counted.wait(); });
  } catch (const std::system_error&) {
  }
  counted.count_down();
  return threads.size() == count;
}

inline constexpr const char* kTooManyThreads =
    "no more threads can be started (ulimit -u, TasksMax=)";

}  // namespace lumsar::base
