// What this process holds, to be compared before and after.
#pragma once

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <iterator>
#include <thread>

namespace lumsar::test {

// Whether the tests and what they start have a sanitizer's memory beside their own, which then says
// nothing about them.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr bool kMemoryIsTheSanitizers = true;
#else
inline constexpr bool kMemoryIsTheSanitizers = false;
#endif

inline std::size_t entriesIn(const char* directory) {
  const auto entries = std::filesystem::directory_iterator(directory);
  return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
}
inline std::size_t openDescriptors() {
  return entriesIn("/proc/self/fd");
}
inline std::size_t threads() {
  return entriesIn("/proc/self/task");
}
// Sanitizers start a thread of their own together with the first other one. A thread that has been
// joined may be listed for a moment more.
inline std::size_t threadsAtRest() {
  std::thread([] {}).join();
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  return threads();
}

}  // namespace lumsar::test
