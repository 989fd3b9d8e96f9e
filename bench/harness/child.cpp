#include "harness/child.h"

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <exception>
#include <system_error>

namespace lumsar::bench {

Nanoseconds processorTime(pid_t process) {
  clockid_t clock{};
  timespec time{};
  const int error = clock_getcpuclockid(process, &clock);
  if (error != 0 || clock_gettime(clock, &time) != 0) {
    throw std::system_error(error != 0 ? error : errno, std::generic_category(), "processor time");
  }
  return std::chrono::seconds(time.tv_sec) + Nanoseconds(time.tv_nsec);
}

Child::Child(const std::function<void()>& work) : m_id(::fork()) {
  if (m_id < 0) throw std::system_error(errno, std::generic_category(), "fork");
  if (m_id > 0) return;
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  try {
    work();
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
  }
  _exit(0);
}

Child::~Child() {
  if (m_id == 0) return;
  ::kill(m_id, SIGKILL);
  wait();
}

void Child::wait() {
  ::waitpid(m_id, nullptr, 0);
  m_id = 0;
}

}  // namespace lumsar::bench
