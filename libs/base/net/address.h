// Addresses as people write them: unix:PATH, tcp:PORT (loopback), tcp:HOST:PORT, tcp:[IPV6]:PORT.
#pragma once

#include <sys/socket.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace lumsar::base {

struct Address {
  std::string path;  // of a Unix socket; empty for TCP
  std::string host;  // a name or a number; resolving names is the caller's
  std::uint16_t port = 0;

  static Address loopback(std::uint16_t port) { return {{}, "127.0.0.1", port}; }
  bool isUnix() const { return !path.empty(); }
  std::string text() const;  // "unix:/run/x", "tcp:127.0.0.1:80", "tcp:[::1]:80"
};

// Throws UsageError with what is expected.
Address parseAddress(const std::string& text);

// "HOST", "HOST:PORT" or "[IPV6]:PORT"; nothing when it is none of these or the port is not valid.
struct HostAndPort {
  std::string host;
  std::optional<std::uint16_t> port;
};
std::optional<HostAndPort> splitHostAndPort(std::string_view text);

// Digits only; 0 is a valid port here.
std::optional<std::uint16_t> parsePort(std::string_view text);

// Throws UsageError when the path is too long for the system.
inline constexpr std::size_t kMaxSocketPath = 107;
void checkSocketPath(const std::string& path);

// What connect() and bind() take.
struct SocketAddress {
  sockaddr_storage storage{};
  socklen_t size = 0;

  const sockaddr* get() const { return reinterpret_cast<const sockaddr*>(&storage); }
};
// Only numeric hosts and "localhost": name look-ups do not work in a static program.
// Throws UsageError.
SocketAddress toSockaddr(const Address& address);

// Where the socket really is: a Unix socket's path or "tcp:127.0.0.1:4711".
std::string localAddress(int socket);

}  // namespace lumsar::base
