// How a connection begins: on the thread that connects or, in the background, on the receiving one.
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "base/deadline.h"
#include "base/net/address.h"
#include "ipc/channel_path.h"
#include "ipc/client/connection.h"
#include "protocol/message.h"

namespace lumsar::ipc {

using Clock = std::chrono::steady_clock;

int Connection::open() {
  const Clock::time_point deadline = Clock::now() + m_timeouts.connect;
  int error = connectSocket(deadline);
  if (error == 0) error = requestConnection();
  if (error == 0) error = awaitAccept(deadline);
  advance(error == 0 ? State::Connected : State::Ended);
  return m_state == State::Stopped ? IPC_ERROR_DISCONNECTED : error;
}

int Connection::connectSocket(Clock::time_point deadline) {
  {
    base::UniqueFd socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!socket) return IPC_ERROR_SYSTEM;
    const std::lock_guard lock(m_gate);
    m_socket = std::move(socket);
  }
  const base::SocketAddress service = base::toSockaddr({m_path, {}, 0});
  while (::connect(m_socket.get(), service.get(), service.size) != 0) {
    switch (errno) {
      case EINTR:
        break;
      case EAGAIN: {  // the service's queue of newcomers is full
        const auto soon = std::min(deadline, Clock::now() + std::chrono::milliseconds(10));
        if (pause(0, soon) == IPC_ERROR_DISCONNECTED) return IPC_ERROR_DISCONNECTED;
        if (Clock::now() >= deadline) return IPC_ERROR_CONNECT_TIMEOUT;
        break;
      }
      case ENOENT:
      case ENOTDIR:
      case ECONNREFUSED:
        return IPC_ERROR_NO_SERVICE;
      case EACCES:
      case EPERM:
        return IPC_ERROR_OTHER_USER;
      default:
        return IPC_ERROR_SYSTEM;
    }
  }
  return sameUser(m_socket.get()) ? 0 : IPC_ERROR_OTHER_USER;
}

int Connection::requestConnection() {
  const std::string_view name(m_params.clientName, ::strnlen(m_params.clientName, kClientNameSize));
  const protocol::Message request(IPC_MSG_CONNECT_REQUEST, {base::bytesOf(name)});
  const auto result = m_writer.write(m_socket.get(), request.bytes(), {}, m_timeouts.connect);
  return result.error == IPC_ERROR_SEND_TIMEOUT ? IPC_ERROR_CONNECT_TIMEOUT : 0;
}

int Connection::awaitAccept(Clock::time_point deadline) {
  for (;;) {
    const std::span<unsigned char> message = m_assembler.next();
    if (!message.empty()) {
      const RedirMsgHeader header = readHeader(message.data());
      if (header.type != IPC_MSG_CONNECT_ACCEPT) return IPC_ERROR_REFUSED;
      return static_cast<int>(header.param);
    }
    if (const int error = receivedFault(); error != 0) return error;
    if (const int error = pause(POLLIN, deadline); error != 0) return error;
    const int error = readSome();
    if (error != 0) return error == IPC_ERROR_SERVICE_GONE ? IPC_ERROR_REFUSED : error;
  }
}

// While opening only: waits for `events` of the socket, for stop() or for the deadline.
int Connection::pause(int events, Clock::time_point deadline) const {
  pollfd fds[] = {{m_wake.get(), POLLIN, 0}, {m_socket.get(), static_cast<short>(events), 0}};
  const nfds_t count = events == 0 ? 1 : 2;
  for (;;) {
    const int ready = ::poll(fds, count, base::pollTimeout(deadline));
    if (ready < 0 && errno == EINTR) continue;
    if (fds[0].revents != 0) return IPC_ERROR_DISCONNECTED;
    return ready > 0 ? 0 : IPC_ERROR_CONNECT_TIMEOUT;
  }
}

}  // namespace lumsar::ipc
