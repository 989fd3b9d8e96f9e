#include "transport/listening_transport.h"

#include <netinet/in.h>
#include <netinet/tcp.h>

#include <cerrno>
#include <utility>

#include "base/log.h"

namespace lumsar::agent {

SocketTransport::SocketTransport(base::UniqueFd socket, std::string name)
    : m_name(std::move(name)) {
  if (socket) use(std::move(socket));
}

void SocketTransport::use(base::UniqueFd socket) {
  m_socket = std::move(socket);
  const int on = 1;  // fails on Unix sockets, which have no delay
  setsockopt(m_socket.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

ssize_t SocketTransport::read(std::span<unsigned char> to) {
  const ssize_t got = recv(m_socket.get(), to.data(), to.size(), MSG_DONTWAIT);
  if (got > 0) return got;
  return got < 0 && (errno == EAGAIN || errno == EINTR) ? 0 : -1;
}

ssize_t SocketTransport::write(std::span<const unsigned char> from) {
  const ssize_t sent = send(m_socket.get(), from.data(), from.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
  if (sent >= 0) return sent;
  return errno == EAGAIN || errno == EINTR ? 0 : -1;
}

ListenTransport::ListenTransport(const base::Address& address)
    : SocketTransport(base::UniqueFd(), "host"), m_listener(base::SocketListener::at(address)) {
  base::logInfo("waiting for a host on {}", m_listener.name());
}

int ListenTransport::descriptor() const {
  return attached() ? SocketTransport::descriptor() : m_listener.descriptor();
}

bool ListenTransport::attach() {
  base::UniqueFd socket = m_listener.accept();
  if (!socket) return false;
  use(std::move(socket));
  return true;
}

}  // namespace lumsar::agent
