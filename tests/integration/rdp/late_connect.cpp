// Preloaded into a host under test: its RDP library begins to connect only after a while, in which
// the test does what must not be lost. Tells when another thread makes a log of the library then.
#include <dlfcn.h>
#include <freerdp/freerdp.h>
#include <unistd.h>
#include <winpr/wlog.h>

#include <atomic>
#include <cstdio>

#define EXPORTED extern "C" __attribute__((visibility("default")))

namespace {

std::atomic<bool> isWaiting = false;

}  // namespace

EXPORTED BOOL freerdp_connect(freerdp* instance) {
  using Connect = BOOL (*)(freerdp*);
  const auto next = reinterpret_cast<Connect>(dlsym(RTLD_NEXT, "freerdp_connect"));
  isWaiting = true;
  std::fputs("late_connect: not yet\n", stderr);
  sleep(1);
  isWaiting = false;
  return next(instance);
}

EXPORTED wLog* WLog_Get(LPCSTR name) {
  using Get = wLog* (*)(LPCSTR);
  const auto next = reinterpret_cast<Get>(dlsym(RTLD_NEXT, "WLog_Get"));
  if (isWaiting) std::fprintf(stderr, "late_connect: another thread makes the log %s\n", name);
  return next(name);
}
