// A file descriptor that closes itself.
#pragma once

#include <unistd.h>

#include <utility>

namespace lumsar::base {

class UniqueFd {
 public:
  explicit UniqueFd(int fd = -1) : m_fd(fd) {}
  UniqueFd(UniqueFd&& other) noexcept : m_fd(other.release()) {}
  UniqueFd& operator=(UniqueFd&& other) noexcept {
    if (this != &other) reset(other.release());
    return *this;
  }
  ~UniqueFd() { reset(); }

  int get() const { return m_fd; }
  explicit operator bool() const { return m_fd >= 0; }
  int release() { return std::exchange(m_fd, -1); }
  void reset(int fd = -1) {
    if (m_fd >= 0) close(m_fd);
    m_fd = fd;
  }

 private:
  int m_fd;
};

}  // namespace lumsar::base
