#include "base/net/peer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>

#include "base/net/address.h"

namespace lumsar::base {
namespace {

// One end of a TCP connection; IPv4 as a mapped IPv6 address.
struct TcpEnd {
  std::array<unsigned char, 16> host{};
  std::uint16_t port = 0;

  bool operator==(const TcpEnd&) const = default;
};

constexpr std::size_t kMappedPrefix = 12;

bool isMapped(const TcpEnd& end) {
  constexpr std::array<unsigned char, kMappedPrefix> kPrefix{0, 0, 0, 0, 0,    0,
                                                             0, 0, 0, 0, 0xFF, 0xFF};
  return std::memcmp(end.host.data(), kPrefix.data(), kMappedPrefix) == 0;
}

TcpEnd mapped(const void* four, std::uint16_t port) {
  TcpEnd end{{}, port};
  end.host[10] = end.host[11] = 0xFF;
  std::memcpy(end.host.data() + kMappedPrefix, four, 4);
  return end;
}

std::optional<TcpEnd> tcpEnd(const sockaddr_storage& storage) {
  if (storage.ss_family == AF_INET) {
    sockaddr_in four{};
    std::memcpy(&four, &storage, sizeof four);
    return mapped(&four.sin_addr, ntohs(four.sin_port));
  }
  if (storage.ss_family != AF_INET6) return std::nullopt;
  sockaddr_in6 six{};
  std::memcpy(&six, &storage, sizeof six);
  TcpEnd end{{}, ntohs(six.sin6_port)};
  std::memcpy(end.host.data(), &six.sin6_addr, end.host.size());
  return end;
}

std::optional<TcpEnd> endOf(int socket, decltype(getpeername)* which) {
  sockaddr_storage storage{};
  socklen_t size = sizeof storage;
  if (which(socket, reinterpret_cast<sockaddr*>(&storage), &size) != 0) return std::nullopt;
  return tcpEnd(storage);
}

bool isLoopback(const TcpEnd& end) {
  if (isMapped(end)) return end.host[kMappedPrefix] == 127;
  return std::memcmp(end.host.data(), &in6addr_loopback, end.host.size()) == 0;
}

std::string hostText(const TcpEnd& end) {
  std::array<char, INET6_ADDRSTRLEN> text{};
  const bool four = isMapped(end);
  inet_ntop(four ? AF_INET : AF_INET6, end.host.data() + (four ? kMappedPrefix : 0), text.data(),
            text.size());
  return text.data();
}

// "0100007F:1F90", or four such numbers for IPv6: each as this machine stores it.
std::optional<TcpEnd> parseEnd(const std::string& text) {
  const std::size_t colon = text.find(':');
  if (colon != 8 && colon != 32) return std::nullopt;
  std::array<std::uint32_t, 4> parts{};
  for (std::size_t i = 0; i < colon / 8; ++i) {
    parts[i] = static_cast<std::uint32_t>(std::strtoul(text.substr(i * 8, 8).c_str(), nullptr, 16));
  }
  const auto port = static_cast<std::uint16_t>(std::strtoul(text.c_str() + colon + 1, nullptr, 16));
  if (colon == 8) return mapped(parts.data(), port);
  TcpEnd end{{}, port};
  std::memcpy(end.host.data(), parts.data(), end.host.size());
  return end;
}

// The user of the socket whose own end is `peer`. One that its owner has closed no longer has a
// user and would seem to be root's.
std::optional<uid_t> userIn(const char* table, const TcpEnd& peer, const TcpEnd& here) {
  constexpr const char* kEstablished = "01";
  std::ifstream file(table);
  std::string line;
  std::getline(file, line);  // the heading
  std::string number, own, other, state, queues, timer, retries;
  uid_t user = 0;
  while (file >> number >> own >> other >> state >> queues >> timer >> retries >> user) {
    std::getline(file, line);
    if (state == kEstablished && parseEnd(own) == peer && parseEnd(other) == here) return user;
  }
  return std::nullopt;
}

std::optional<uid_t> unixUser(int socket) {
  ucred peer{};
  socklen_t size = sizeof peer;
  if (getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0) return std::nullopt;
  return peer.uid;
}

}  // namespace

Peer peerOf(int socket) {
  const auto peer = endOf(socket, getpeername);
  const auto here = endOf(socket, getsockname);
  if (!peer || !here) return {{}, true, unixUser(socket)};
  Peer result{hostText(*peer), isLoopback(*peer) || peer->host == here->host, {}};
  if (!result.onThisMachine) return result;
  for (const char* table : {"/proc/net/tcp", "/proc/net/tcp6"}) {
    if (!result.user) result.user = userIn(table, *peer, *here);
  }
  return result;
}

bool isTrustedUser(const std::optional<uid_t>& user) {
  return user && (*user == geteuid() || *user == 0);
}

}  // namespace lumsar::base
