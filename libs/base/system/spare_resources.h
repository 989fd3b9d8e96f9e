// Whether this process may open more descriptors and start more threads, so that what fails without
// them can be left alone and its cause be named.
#pragma once

#include <fcntl.h>
#include <sys/resource.h>

#include <cstddef>
#include <latch>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "base/system/fd.h"
#include "base/text/format.h"

namespace lumsar::base {

inline rlim_t descriptorLimit() {
  rlimit limit{};
  return getrlimit(RLIMIT_NOFILE, &limit) == 0 ? limit.rlim_cur : RLIM_INFINITY;
}

// The system gives the lowest free number: all below it are in use.
inline bool hasSpareDescriptors(std::size_t count) {
  const UniqueFd lowest(open("/", O_PATH | O_CLOEXEC));
  return lowest && static_cast<rlim_t>(lowest.get()) + count <= descriptorLimit();
}

inline std::string tooManyOpenFiles() {
  return text("too many files are open; at most {} may be (ulimit -n, LimitNOFILE=)",
              descriptorLimit());
}

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
