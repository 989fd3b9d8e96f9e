#include "rdp/socket_cut.h"

#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <cstdlib>
#include <filesystem>

namespace lumsar::host {

namespace {

// The server may have bound its socket by a name that does not lead there from here: a relative
// one, or one in a container. Only the last part of it is sure to be the same.
bool isBoundAs(const sockaddr_un& bound, const std::string& path) {
  std::error_code gone;
  const auto real = std::filesystem::canonical(path, gone);
  return (gone ? std::filesystem::path(path) : real).filename() ==
         std::filesystem::path(bound.sun_path).filename();
}

bool leadsTo(int file, const std::string& host, std::uint16_t port) {
  sockaddr_storage peer{};
  socklen_t size = sizeof peer;
  auto* address = reinterpret_cast<sockaddr*>(&peer);
  if (getpeername(file, address, &size) != 0) return false;
  switch (peer.ss_family) {
    case AF_UNIX:
      return host.starts_with('/') && isBoundAs(*reinterpret_cast<const sockaddr_un*>(&peer), host);
    case AF_INET:
      return !host.starts_with('/') &&
             reinterpret_cast<const sockaddr_in*>(&peer)->sin_port == htons(port);
    case AF_INET6:
      return !host.starts_with('/') &&
             reinterpret_cast<const sockaddr_in6*>(&peer)->sin6_port == htons(port);
    default:
      return false;
  }
}

}  // namespace

void cutSockets(const std::string& host, std::uint16_t port) {
  std::error_code ignored;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd", ignored)) {
    const int file = std::atoi(entry.path().filename().c_str());
    if (leadsTo(file, host, port)) shutdown(file, SHUT_RDWR);
  }
}

}  // namespace lumsar::host
