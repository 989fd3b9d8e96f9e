// Unix stream sockets for the tests' servers.
#ifndef LUMSAR_TESTS_INTEGRATION_RDP_UNIX_SOCKET_H
#define LUMSAR_TESTS_INTEGRATION_RDP_UNIX_SOCKET_H

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <stdexcept>
#include <string>

namespace lumsar_test {

inline int listenAt(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  unlink(path.c_str());
  const int file = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (bind(file, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
      listen(file, 8) != 0) {
    throw std::runtime_error("cannot listen at " + path);
  }
  return file;
}

// A connection to `path`, or -1.
inline int connectTo(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  const int file = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (connect(file, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0) return file;
  close(file);
  return -1;
}

// A new connection, or -1 when none came within a moment.
inline int acceptSoon(int listener) {
  pollfd file{listener, POLLIN, 0};
  if (poll(&file, 1, 20) <= 0) return -1;
  return accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
}

}  // namespace lumsar_test

#endif
