// Counted and failing resources: allocations of the calling thread, and thread starts.
// Linked only into programs that ask for it, for it takes the place of the process's allocator
// (with a sanitizer: of its operator new) and of pthread_create.
// State is per thread: what other threads allocate is neither counted nor failed.
#pragma once

#include <cstddef>

namespace lumsar::test {

// Allocations of the calling thread since its start, and the size of the last one.
std::size_t allocationCount();
std::size_t lastAllocationSize();

// While it lives, allocations of min to max bytes on this thread fail.
class FailingAllocations {
 public:
  FailingAllocations(std::size_t min, std::size_t max);
  explicit FailingAllocations(std::size_t size) : FailingAllocations(size, size) {}
  ~FailingAllocations();
  FailingAllocations(const FailingAllocations&) = delete;
  FailingAllocations& operator=(const FailingAllocations&) = delete;
};

// While it lives, this thread cannot start threads.
class FailingThreads {
 public:
  FailingThreads();
  ~FailingThreads();
  FailingThreads(const FailingThreads&) = delete;
  FailingThreads& operator=(const FailingThreads&) = delete;
};

}  // namespace lumsar::test
