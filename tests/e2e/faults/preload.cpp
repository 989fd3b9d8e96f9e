// Loaded into a program before the C library: its clock is off by what a file says, and it cannot
// start threads while the file says so.
#include <fcntl.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <ctime>

#include <dlfcn.h>

#include "faults/orders.h"

namespace {

using lumsar::test::Orders;

const Orders& orders() {
  static const Orders* const mapped = [] {
    static const Orders none;
    const char* path = std::getenv("LUMSAR_FAULTS_FILE");
    const int file = path == nullptr ? -1 : open(path, O_RDONLY | O_CLOEXEC);
    if (file < 0) return &none;
    void* const at = mmap(nullptr, sizeof(Orders), PROT_READ, MAP_SHARED, file, 0);
    close(file);
    return at == MAP_FAILED ? &none : static_cast<const Orders*>(at);
  }();
  return *mapped;
}

}  // namespace

#pragma GCC visibility push(default)
extern "C" {

int clock_gettime(clockid_t clock, timespec* time) noexcept {
  const long result = syscall(SYS_clock_gettime, clock, time);
  if (result == 0 && clock == CLOCK_REALTIME) time->tv_sec += orders().clockOffset;
  return static_cast<int>(result);
}

int gettimeofday(timeval* time, void*) noexcept {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  *time = {now.tv_sec, now.tv_nsec / 1000};
  return 0;
}

time_t time(time_t* where) noexcept {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  if (where != nullptr) *where = now.tv_sec;
  return now.tv_sec;
}

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*function)(void*),
                   void* argument) noexcept {
  if (orders().refuseThreads) return EAGAIN;
  using Create = int (*)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
  static const auto create = reinterpret_cast<Create>(dlsym(RTLD_NEXT, "pthread_create"));
  return create(thread, attributes, function, argument);
}
}
#pragma GCC visibility pop
