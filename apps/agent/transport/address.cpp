// Parsing addresses and listening on them. Called by the program's start.
// Numeric addresses only: name look-ups do not work in a static program.
#include "transport/address.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>

#include "app/log.h"

namespace lumsar::agent {
namespace {

[[noreturn]] void refuse(const std::string& text) {
  throw Failure("\"" + text +
                "\" is no address; expected unix:PATH, tcp:PORT (loopback only) or "
                "tcp:ADDRESS:PORT with a numeric address, such as tcp:127.0.0.1:4711");
}

bool parsePort(std::string_view text, std::uint16_t& port) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), port);
  return error == std::errc{} && end == text.data() + text.size() && !text.empty();
}

template <class Sockaddr>
socklen_t store(sockaddr_storage& storage, const Sockaddr& address) {
  static_assert(sizeof address <= sizeof storage);
  std::memcpy(&storage, &address, sizeof address);
  return sizeof address;
}

socklen_t storeIp(sockaddr_storage& storage, const std::string& host, std::uint16_t port) {
  sockaddr_in four{};
  four.sin_family = AF_INET;
  four.sin_port = htons(port);
  if (inet_pton(AF_INET, host.c_str(), &four.sin_addr) == 1) return store(storage, four);
  sockaddr_in6 six{};
  six.sin6_family = AF_INET6;
  six.sin6_port = htons(port);
  if (inet_pton(AF_INET6, host.c_str(), &six.sin6_addr) == 1) return store(storage, six);
  return 0;
}

// A socket file that nobody serves any more is in the way of a new start.
void removeStale(const Address& address, const sockaddr_storage& storage, socklen_t size) {
  struct stat file {};
  if (lstat(address.path().c_str(), &file) != 0) return;
  if (!S_ISSOCK(file.st_mode)) {
    throw Failure("cannot listen on " + address.path() +
                  ": a file of another kind is there; remove it or choose another path");
  }
  const base::UniqueFd probe(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (connect(probe.get(), reinterpret_cast<const sockaddr*>(&storage), size) == 0) {
    throw Failure("cannot listen on " + address.path() +
                  ": another program serves it; stop that one or choose another path");
  }
  if (errno == ECONNREFUSED) unlink(address.path().c_str());
}

}  // namespace

Address Address::parse(const std::string& text) {
  Address address;
  address.m_text = text;
  if (text.starts_with("unix:")) {
    address.m_path = text.substr(5);
    sockaddr_un un{};
    un.sun_family = AF_UNIX;
    if (address.m_path.empty()) refuse(text);
    if (address.m_path.size() >= sizeof un.sun_path) {
      throw Failure("the socket path " + address.m_path +
                    " is too long; at most 107 bytes are possible, choose a shorter one");
    }
    address.m_path.copy(un.sun_path, sizeof un.sun_path - 1);
    address.m_size = store(address.m_storage, un);
    return address;
  }
  if (!text.starts_with("tcp:")) refuse(text);
  const std::string rest = text.substr(4);
  const std::size_t colon = rest.rfind(':');
  std::string host = colon == std::string::npos ? "127.0.0.1" : rest.substr(0, colon);
  if (host.starts_with('[') && host.ends_with(']')) host = host.substr(1, host.size() - 2);
  if (host == "localhost") host = "127.0.0.1";
  std::uint16_t port = 0;
  if (!parsePort(colon == std::string::npos ? rest : rest.substr(colon + 1), port)) refuse(text);
  address.m_size = storeIp(address.m_storage, host, port);
  if (address.m_size == 0) refuse(text);
  return address;
}

Address Address::loopback(std::uint16_t port) {
  return parse(text("tcp:127.0.0.1:", port));
}

base::UniqueFd Address::listen() const {
  base::UniqueFd listener(
      socket(m_storage.ss_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!listener) throw Failure("cannot listen on " + m_text + ": " + systemError());
  const int on = 1;
  setsockopt(listener.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  if (isUnix()) removeStale(*this, m_storage, m_size);
  const mode_t before = umask(0177);  // the socket is for its owner only
  const int bound = bind(listener.get(), reinterpret_cast<const sockaddr*>(&m_storage), m_size);
  const int error = errno;
  umask(before);
  errno = error;
  if (bound != 0 || ::listen(listener.get(), 16) != 0) {
    const bool taken = errno == EADDRINUSE;
    throw Failure("cannot listen on " + m_text + ": " + systemError() +
                  (taken ? "; stop the program that uses it or choose another one" : ""));
  }
  return listener;
}

std::string localAddress(int socket) {
  sockaddr_storage storage{};
  socklen_t size = sizeof storage;
  if (getsockname(socket, reinterpret_cast<sockaddr*>(&storage), &size) != 0) return "?";
  std::array<char, INET6_ADDRSTRLEN> host{};
  if (storage.ss_family == AF_INET) {
    sockaddr_in four{};
    std::memcpy(&four, &storage, sizeof four);
    inet_ntop(AF_INET, &four.sin_addr, host.data(), host.size());
    return text("tcp:", host.data(), ":", ntohs(four.sin_port));
  }
  if (storage.ss_family != AF_INET6) return "unix";
  sockaddr_in6 six{};
  std::memcpy(&six, &storage, sizeof six);
  inet_ntop(AF_INET6, &six.sin6_addr, host.data(), host.size());
  return text("tcp:[", host.data(), "]:", ntohs(six.sin6_port));
}

}  // namespace lumsar::agent
