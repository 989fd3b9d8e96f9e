// What is counted in a program that has the preload library of these tests.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace lumsar::test {

struct FrameCounts {
  std::atomic<std::uint64_t> allocations;
  std::atomic<std::uint64_t> copies;
};
inline constexpr std::size_t kCountedCopy = 50'000;

}  // namespace lumsar::test
