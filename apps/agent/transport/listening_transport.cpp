#include "transport/listening_transport.h"

#include <netinet/in.h>
#include <netinet/tcp.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "base/log.h"

namespace lumsar::agent {

SocketTransport::SocketTransport(AcceptedPeer peer, std::string name) : m_name(std::move(name)) {
  use(std::move(peer));
}

void SocketTransport::use(AcceptedPeer peer) {
  m_peer = std::move(peer);
  const int on = 1;  // fails on Unix sockets, which have no delay
  setsockopt(m_peer.socket.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

ssize_t SocketTransport::read(std::span<unsigned char> to) {
  const ssize_t got = recv(descriptor(), to.data(), to.size(), MSG_DONTWAIT);
  if (got > 0) return checkAccess(to.first(static_cast<std::size_t>(got)));
  return got < 0 && (errno == EAGAIN || errno == EINTR) ? 0 : -1;
}

// How many of the bytes follow the access token; these are moved to the front.
ssize_t SocketTransport::checkAccess(std::span<unsigned char> received) {
  base::Bytes rest = received;
  if (m_peer.access.take(rest) == protocol::AccessCheck::Result::Refused) {
    base::logWarning("{}: did not send the access token; use the same --token-file at both ends",
                     m_name);
    return -1;
  }
  if (rest.size() < received.size())
    std::copy(rest.data(), rest.data() + rest.size(), received.data());
  return static_cast<ssize_t>(rest.size());
}

ssize_t SocketTransport::write(std::span<const unsigned char> from) {
  const ssize_t sent =
      send(m_peer.socket.get(), from.data(), from.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
  if (sent >= 0) return sent;
  return errno == EAGAIN || errno == EINTR ? 0 : -1;
}

ListenTransport::ListenTransport(const base::Address& address, std::string accessLine)
    : SocketTransport("host"), m_listener(address, std::move(accessLine)) {
  base::logInfo("waiting for a host on {}", m_listener.name());
}

int ListenTransport::descriptor() const {
  return attached() ? SocketTransport::descriptor() : m_listener.descriptor();
}

bool ListenTransport::attach() {
  auto peer = m_listener.accept();
  if (!peer) return false;
  use(std::move(*peer));
  return true;
}

}  // namespace lumsar::agent
