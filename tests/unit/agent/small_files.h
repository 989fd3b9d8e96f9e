// While it lives, no file of this process may grow beyond `size` bytes, as on a full disk. Used by
// the tests of lumsar-agent.
#pragma once

#include <sys/resource.h>

#include <csignal>

namespace lumsar::test {

class SmallFiles {
 public:
  explicit SmallFiles(rlim_t size) : m_handler(std::signal(SIGXFSZ, SIG_IGN)) {
    getrlimit(RLIMIT_FSIZE, &m_before);
    const rlimit small{size, m_before.rlim_max};
    setrlimit(RLIMIT_FSIZE, &small);
  }
  ~SmallFiles() {
    setrlimit(RLIMIT_FSIZE, &m_before);
    std::signal(SIGXFSZ, m_handler);
  }
  SmallFiles(const SmallFiles&) = delete;
  SmallFiles& operator=(const SmallFiles&) = delete;

 private:
  void (*m_handler)(int);
  rlimit m_before{};
};

}  // namespace lumsar::test
