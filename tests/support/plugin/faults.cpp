// A program's own malloc takes the C library's place for all libraries in it, Qt's strings
// included. A sanitizer needs its own malloc, so there only operator new is replaced.
#include "support/plugin/faults.h"

#include <dlfcn.h>
#include <pthread.h>

#include <cerrno>
#include <cstdlib>
#include <limits>
#include <new>

namespace {

constexpr std::size_t kNever = std::numeric_limits<std::size_t>::max();

thread_local std::size_t count = 0;
thread_local std::size_t lastSize = 0;
thread_local std::size_t failMin = kNever;
thread_local std::size_t failMax = 0;
thread_local bool threadsFail = false;

bool granted(std::size_t size) {
  ++count;
  lastSize = size;
  return size < failMin || size > failMax;
}

using CreateThread = int(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);

}  // namespace

namespace lumsar::test {

std::size_t allocationCount() {
  return count;
}
std::size_t lastAllocationSize() {
  return lastSize;
}

FailingAllocations::FailingAllocations(std::size_t min, std::size_t max) {
  failMin = min;
  failMax = max;
}
FailingAllocations::~FailingAllocations() {
  failMin = kNever;
  failMax = 0;
}

FailingThreads::FailingThreads() {
  threadsFail = true;
}
FailingThreads::~FailingThreads() {
  threadsFail = false;
}

}  // namespace lumsar::test

extern "C" __attribute__((visibility("default"))) int pthread_create(
    pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*), void* argument) {
  if (threadsFail) return EAGAIN;
  static auto* const real = reinterpret_cast<CreateThread*>(dlsym(RTLD_NEXT, "pthread_create"));
  return real(thread, attributes, body, argument);
}

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)

namespace {

void* allocate(std::size_t size) {
  void* memory = granted(size) ? std::malloc(size != 0 ? size : 1) : nullptr;
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}
void* allocateOrNull(std::size_t size) noexcept {
  return granted(size) ? std::malloc(size != 0 ? size : 1) : nullptr;
}

}  // namespace

void* operator new(std::size_t size) {
  return allocate(size);
}
void* operator new[](std::size_t size) {
  return allocate(size);
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return allocateOrNull(size);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
  return allocateOrNull(size);
}
void operator delete(void* memory) noexcept {
  std::free(memory);
}
void operator delete[](void* memory) noexcept {
  std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}
void operator delete[](void* memory, std::size_t) noexcept {
  std::free(memory);
}

#else

extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t number, std::size_t size);
void* __libc_realloc(void* memory, std::size_t size);

__attribute__((visibility("default"))) void* malloc(std::size_t size) {
  return granted(size) ? __libc_malloc(size) : nullptr;
}
__attribute__((visibility("default"))) void* calloc(std::size_t number, std::size_t size) {
  return granted(number * size) ? __libc_calloc(number, size) : nullptr;
}
__attribute__((visibility("default"))) void* realloc(void* memory, std::size_t size) {
  return granted(size) ? __libc_realloc(memory, size) : nullptr;
}
}

#endif
