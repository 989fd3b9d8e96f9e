// Stream sockets as transports. Owned by a Peer.
// Bound to the channel's thread.
#include "transport/listening_transport.h"

#include <netinet/in.h>
#include <netinet/tcp.h>

#include <cerrno>
#include <utility>

#include "app/log.h"

namespace lumsar::agent {

SocketTransport::SocketTransport(base::UniqueFd connection, std::string name)
    : m_name(std::move(name)) {
  if (connection) use(std::move(connection));
}

void SocketTransport::use(base::UniqueFd connection) {
  m_connection = std::move(connection);
  const int on = 1;  // fails on Unix sockets, which have no delay
  setsockopt(m_connection.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

ssize_t SocketTransport::read(std::span<unsigned char> to) {
  const ssize_t got = recv(m_connection.get(), to.data(), to.size(), MSG_DONTWAIT);
  if (got > 0) return got;
  if (got < 0 && (errno == EAGAIN || errno == EINTR)) return 0;
  return -1;
}

ssize_t SocketTransport::write(std::span<const unsigned char> from) {
  const ssize_t sent =
      send(m_connection.get(), from.data(), from.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
  if (sent >= 0) return sent;
  return errno == EAGAIN || errno == EINTR ? 0 : -1;
}

ListenTransport::ListenTransport(const Address& address)
    : SocketTransport(base::UniqueFd(), "host"), m_address(address), m_listener(address.listen()) {
  logInfo("waiting for a host on ",
          address.isUnix() ? address.path() : localAddress(m_listener.get()));
}

ListenTransport::~ListenTransport() {
  if (m_address.isUnix()) unlink(m_address.path().c_str());
}

int ListenTransport::descriptor() const {
  return attached() ? SocketTransport::descriptor() : m_listener.get();
}

bool ListenTransport::attach() {
  base::UniqueFd connection(accept4(m_listener.get(), nullptr, nullptr, SOCK_CLOEXEC));
  if (!connection) return false;
  use(std::move(connection));
  return true;
}

}  // namespace lumsar::agent
