// A GTK module that measures, in whatever program has loaded it, how long its main loop does not
// look for events: while that lasts, the desktop stands still. With each SIGUSR1 it prints the
// longest such time since the last one to the standard error, and the most processor time that the
// thread has taken for one, both in microseconds.
#include <glib-unix.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <ctime>

extern "C" __attribute__((visibility("default"))) void gtk_module_init(int* argc, char*** argv);

namespace {

GPollFunc realPoll;
struct Times {
  gint64 real = 0;
  gint64 processor = 0;
};
Times lastLook;
Times longest;

Times now() {
  timespec processor{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &processor);
  return {g_get_monotonic_time(), processor.tv_sec * 1'000'000 + processor.tv_nsec / 1000};
}

gint poll(GPollFD* files, guint count, gint timeout) {
  const Times look = now();
  if (lastLook.real != 0) {
    longest.real = std::max(longest.real, look.real - lastLook.real);
    longest.processor = std::max(longest.processor, look.processor - lastLook.processor);
  }
  const gint ready = realPoll(files, count, timeout);
  lastLook = now();
  return ready;
}

gboolean print(gpointer) {
  std::fprintf(stderr, "longest turn %lld us, %lld us of processor time\n",
               static_cast<long long>(longest.real), static_cast<long long>(longest.processor));
  longest = {};
  return G_SOURCE_CONTINUE;
}

}  // namespace

void gtk_module_init(int*, char***) {
  realPoll = g_main_context_get_poll_func(nullptr);
  g_main_context_set_poll_func(nullptr, poll);
  g_unix_signal_add(SIGUSR1, print, nullptr);
}
