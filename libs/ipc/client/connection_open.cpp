// Connection: how it begins, see connection.h. Runs on the thread that connects or, in the
// background, on the receiving thread.
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "ipc/channel_path.h"
#include "ipc/client/connection.h"

namespace lumsar::ipc {
namespace {

using Clock = std::chrono::steady_clock;

int milliseconds(Clock::duration duration) {
  const auto count = std::chrono::ceil<std::chrono::milliseconds>(duration).count();
  return static_cast<int>(std::max<decltype(count)>(count, 0));
}

}  // namespace

int Connection::open() {
  const Clock::time_point deadline = Clock::now() + m_limits.connect;
  int error = m_wake ? connectSocket(deadline) : IPC_ERROR_SYSTEM;
  if (error == 0) error = introduce();
  if (error == 0) error = awaitWelcome(deadline);
  const std::lock_guard lock(m_gate);
  if (m_stopped) error = IPC_ERROR_DISCONNECTED;
  m_connected = error == 0;
  m_ended = error != 0;
  return error;
}

int Connection::connectSocket(Clock::time_point deadline) {
  {
    base::UniqueFd socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!socket) return IPC_ERROR_SYSTEM;
    const std::lock_guard lock(m_gate);
    m_socket = std::move(socket);
  }
  const sockaddr_un address = socketAddress(m_path);
  const auto* target = reinterpret_cast<const sockaddr*>(&address);
  while (::connect(m_socket.get(), target, sizeof address) != 0) {
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

int Connection::introduce() {
  RedirMsgHeader header;
  header.type = IPC_MSG_INTRODUCTION;
  header.length = static_cast<std::uint32_t>(::strnlen(m_params.clientName, kClientNameSize));
  const auto* head = reinterpret_cast<const unsigned char*>(&header);
  const auto* name = reinterpret_cast<const unsigned char*>(m_params.clientName);
  const auto result = m_writer.write(m_socket.get(), {head, sizeof header}, {name, header.length},
                                     m_limits.connect);
  return result.error == IPC_ERROR_SEND_TIMEOUT ? IPC_ERROR_CONNECT_TIMEOUT : 0;
}

int Connection::awaitWelcome(Clock::time_point deadline) {
  for (;;) {
    const std::span<unsigned char> message = m_assembler.next();
    if (!message.empty()) {
      const RedirMsgHeader header = readHeader(message.data());
      if (header.type != IPC_MSG_WELCOME) return IPC_ERROR_REFUSED;
      return static_cast<int>(header.param);
    }
    if (m_assembler.fault() == MessageAssembler::Fault::Magic) return IPC_ERROR_BAD_MAGIC;
    if (m_assembler.fault() == MessageAssembler::Fault::TooLong) return IPC_ERROR_TOO_LONG;
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
    const int ready = ::poll(fds, count, milliseconds(deadline - Clock::now()));
    if (ready < 0 && errno == EINTR) continue;
    if (fds[0].revents != 0) return IPC_ERROR_DISCONNECTED;
    return ready > 0 ? 0 : IPC_ERROR_CONNECT_TIMEOUT;
  }
}

}  // namespace lumsar::ipc
