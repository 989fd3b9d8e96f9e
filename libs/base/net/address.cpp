#include "base/net/address.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/un.h>

#include <array>
#include <charconv>
#include <cstring>

#include "base/errors.h"
#include "base/text/format.h"

namespace lumsar::base {
namespace {

static_assert(sizeof(sockaddr_un{}.sun_path) == kMaxSocketPath + 1);

[[noreturn]] void refuse(const std::string& address) {
  throw UsageError(
      text("\"{}\" is not a valid address; expected unix:PATH, tcp:PORT (loopback "
           "only), tcp:HOST:PORT or tcp:[IPV6]:PORT, such as tcp:127.0.0.1:4711",
           address));
}

template <class Sockaddr>
SocketAddress stored(const Sockaddr& address) {
  SocketAddress result;
  std::memcpy(&result.storage, &address, sizeof address);
  result.size = sizeof address;
  return result;
}

template <class Sockaddr>
Sockaddr restored(const sockaddr_storage& storage) {
  Sockaddr address{};
  std::memcpy(&address, &storage, sizeof address);
  return address;
}

}  // namespace

std::string Address::text() const {
  if (isUnix()) return base::text("unix:{}", path);
  if (host.find(':') != std::string::npos) return base::text("tcp:[{}]:{}", host, port);
  return base::text("tcp:{}:{}", host, port);
}

std::optional<std::uint16_t> parsePort(std::string_view text) {
  std::uint16_t port = 0;
  const char* end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, port);
  if (error != std::errc() || rest != end) return std::nullopt;
  return port;
}

std::optional<HostAndPort> splitHostAndPort(std::string_view text) {
  const bool bracketed = text.starts_with('[');
  const std::size_t hostEnd = bracketed ? text.find(']') : text.find(':');
  if (bracketed && hostEnd == std::string_view::npos) return std::nullopt;
  HostAndPort result{std::string(text.substr(0, hostEnd)), {}};
  text.remove_prefix(std::min(hostEnd, text.size()));
  if (bracketed) {
    result.host.erase(0, 1);
    text.remove_prefix(1);
  }
  if (result.host.empty()) return std::nullopt;
  if (text.empty()) return result;
  if (!text.starts_with(':')) return std::nullopt;
  result.port = parsePort(text.substr(1));
  if (!result.port) return std::nullopt;
  return result;
}

void checkSocketPath(const std::string& path) {
  if (path.size() <= kMaxSocketPath) return;
  throw UsageError(
      text("the socket path {} is too long; at most {} bytes are possible, choose a "
           "shorter one",
           path, kMaxSocketPath));
}

Address parseAddress(const std::string& text) {
  if (text.starts_with("unix:")) {
    Address address{text.substr(5), {}, 0};
    if (address.path.empty()) refuse(text);
    checkSocketPath(address.path);
    return address;
  }
  if (!text.starts_with("tcp:")) refuse(text);
  const std::string rest = text.substr(4);
  if (const auto port = parsePort(rest)) return Address::loopback(*port);
  const auto tcp = splitHostAndPort(rest);
  if (!tcp || !tcp->port) refuse(text);
  return {{}, tcp->host, *tcp->port};
}

SocketAddress toSockaddr(const Address& address) {
  if (address.isUnix()) {
    checkSocketPath(address.path);
    sockaddr_un un{};
    un.sun_family = AF_UNIX;
    address.path.copy(un.sun_path, kMaxSocketPath);
    return stored(un);
  }
  const std::string host = address.host == "localhost" ? "127.0.0.1" : address.host;
  sockaddr_in four{};
  four.sin_family = AF_INET;
  four.sin_port = htons(address.port);
  if (inet_pton(AF_INET, host.c_str(), &four.sin_addr) == 1) return stored(four);
  sockaddr_in6 six{};
  six.sin6_family = AF_INET6;
  six.sin6_port = htons(address.port);
  if (inet_pton(AF_INET6, host.c_str(), &six.sin6_addr) == 1) return stored(six);
  throw UsageError(
      text("\"{}\" is not a valid address here; expected a numeric host, such as "
           "tcp:127.0.0.1:4711",
           address.text()));
}

std::string localAddress(int socket) {
  SocketAddress bound;
  bound.size = sizeof bound.storage;
  auto* storage = reinterpret_cast<sockaddr*>(&bound.storage);
  if (getsockname(socket, storage, &bound.size) != 0) return "?";
  std::array<char, INET6_ADDRSTRLEN> host{};
  if (bound.storage.ss_family == AF_UNIX) return restored<sockaddr_un>(bound.storage).sun_path;
  if (bound.storage.ss_family == AF_INET) {
    const auto four = restored<sockaddr_in>(bound.storage);
    inet_ntop(AF_INET, &four.sin_addr, host.data(), host.size());
    return Address{{}, host.data(), ntohs(four.sin_port)}.text();
  }
  const auto six = restored<sockaddr_in6>(bound.storage);
  inet_ntop(AF_INET6, &six.sin6_addr, host.data(), host.size());
  return Address{{}, host.data(), ntohs(six.sin6_port)}.text();
}

}  // namespace lumsar::base
