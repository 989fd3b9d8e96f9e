// Preloaded into a host under test: its RDP library begins to connect only after a while, in which
// the test does what must not be lost.
#include <dlfcn.h>
#include <freerdp/freerdp.h>
#include <unistd.h>

#include <cstdio>

extern "C" __attribute__((visibility("default"))) BOOL freerdp_connect(freerdp* instance) {
  using Connect = BOOL (*)(freerdp*);
  const auto next = reinterpret_cast<Connect>(dlsym(RTLD_NEXT, "freerdp_connect"));
  std::fputs("late_connect: not yet\n", stderr);
  sleep(1);
  return next(instance);
}
