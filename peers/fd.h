// UniqueFd: a file descriptor that closes itself.
// Used by everything here that opens one; movable, never shared.
// Bound to one thread at a time.
#ifndef LUMSAR_VM_FD_H
#define LUMSAR_VM_FD_H

#include <unistd.h>

#include <utility>

namespace lumsar::vm {

class UniqueFd {
 public:
  explicit UniqueFd(int fd = -1) : m_fd(fd) {}
  UniqueFd(UniqueFd&& other) noexcept : m_fd(std::exchange(other.m_fd, -1)) {}
  UniqueFd& operator=(UniqueFd&& other) noexcept {
    if (this != &other) reset(std::exchange(other.m_fd, -1));
    return *this;
  }
  ~UniqueFd() { reset(); }

  int get() const { return m_fd; }
  explicit operator bool() const { return m_fd >= 0; }
  void reset(int fd = -1) {
    if (m_fd >= 0) close(m_fd);
    m_fd = fd;
  }

 private:
  int m_fd;
};

}  // namespace lumsar::vm

#endif
