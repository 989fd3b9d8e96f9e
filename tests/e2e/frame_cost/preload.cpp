// Loaded into a program before the C library: counts what it allocates, and what it copies that is
// as large as a frame, in a file that a test reads.
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "frame_cost/counts.h"

namespace {

using lumsar::test::FrameCounts;

FrameCounts* mapped() {
  const char* path = std::getenv("LUMSAR_COUNTS_FILE");
  const int file = path == nullptr ? -1 : open(path, O_RDWR | O_CLOEXEC);
  if (file < 0) return nullptr;
  void* const at = mmap(nullptr, sizeof(FrameCounts), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
  close(file);
  return at == MAP_FAILED ? nullptr : static_cast<FrameCounts*>(at);
}

FrameCounts& counts() {
  static FrameCounts unused;
  static FrameCounts* const shared = mapped();
  return shared != nullptr ? *shared : unused;
}

// The C library's own would have to be looked up, which copies.
void* copy(void* to, const void* from, std::size_t size) {
  if (size >= lumsar::test::kCountedCopy) ++counts().copies;
  void* const result = to;
  asm volatile("rep movsb" : "+D"(to), "+S"(from), "+c"(size) : : "memory");
  return result;
}

bool overlapsBehind(const void* to, const void* from, std::size_t size) {
  const auto distance =
      reinterpret_cast<std::uintptr_t>(to) - reinterpret_cast<std::uintptr_t>(from);
  return distance < size;
}

void* move(void* to, const void* from, std::size_t size) {
  if (!overlapsBehind(to, from, size)) return copy(to, from, size);
  auto* const first = static_cast<volatile unsigned char*>(to);
  const auto* const source = static_cast<const unsigned char*>(from);
  while (size-- > 0) first[size] = source[size];
  return to;
}

}  // namespace

// The C library's own names of its allocator, which needs no look-up that would allocate.
extern "C" void* __libc_malloc(std::size_t size);
extern "C" void* __libc_calloc(std::size_t count, std::size_t size);
extern "C" void* __libc_realloc(void* memory, std::size_t size);

#pragma GCC visibility push(default)
extern "C" {

void* malloc(std::size_t size) noexcept {
  ++counts().allocations;
  return __libc_malloc(size);
}
void* calloc(std::size_t count, std::size_t size) noexcept {
  ++counts().allocations;
  return __libc_calloc(count, size);
}
void* realloc(void* memory, std::size_t size) noexcept {
  ++counts().allocations;
  return __libc_realloc(memory, size);
}

void* memcpy(void* to, const void* from, std::size_t size) noexcept {
  return copy(to, from, size);
}
void* memmove(void* to, const void* from, std::size_t size) noexcept {
  return move(to, from, size);
}
void* __memcpy_chk(void* to, const void* from, std::size_t size, std::size_t /*room*/) noexcept {
  return copy(to, from, size);
}
void* __memmove_chk(void* to, const void* from, std::size_t size, std::size_t /*room*/) noexcept {
  return move(to, from, size);
}
}
#pragma GCC visibility pop
