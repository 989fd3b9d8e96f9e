// Fd: owns one file descriptor and closes it. Used by both ends of the transport.
// No thread of its own: each object is bound to one thread at a time.
#ifndef LUMSAR_PEERS_IPC_FD_H
#define LUMSAR_PEERS_IPC_FD_H

#include <unistd.h>

#include <utility>

namespace lumsar::ipc {

class Fd {
 public:
  Fd() = default;
  explicit Fd(int fd) : m_fd(fd) {}
  Fd(Fd&& other) noexcept : m_fd(std::exchange(other.m_fd, -1)) {}
  Fd& operator=(Fd&& other) noexcept {
    std::swap(m_fd, other.m_fd);
    return *this;
  }
  Fd(const Fd&) = delete;
  Fd& operator=(const Fd&) = delete;
  ~Fd() {
    if (m_fd >= 0) ::close(m_fd);
  }

  int get() const { return m_fd; }
  int release() { return std::exchange(m_fd, -1); }
  explicit operator bool() const { return m_fd >= 0; }

 private:
  int m_fd = -1;
};

}  // namespace lumsar::ipc

#endif
