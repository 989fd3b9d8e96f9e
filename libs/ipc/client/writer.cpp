// A turn, not a lock held while sending: a thread that waits for it can then time out.
#include "ipc/client/writer.h"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include "base/deadline.h"
#include "lumsar/ipc_transport.h"

namespace lumsar::ipc {
namespace {

using Clock = std::chrono::steady_clock;

iovec view(std::span<const unsigned char> bytes) {
  return {const_cast<unsigned char*>(bytes.data()), bytes.size()};
}

// False when the deadline passes before the socket takes data again.
bool awaitCapacity(int socket, Clock::time_point deadline) {
  const int left = base::pollTimeout(deadline);
  if (left == 0) return false;
  pollfd writable = {socket, POLLOUT, 0};
  const int ready = ::poll(&writable, 1, left);
  return ready > 0 || (ready < 0 && errno == EINTR);
}

void advance(std::array<iovec, 2>& parts, std::size_t sent) {
  for (iovec& part : parts) {
    const std::size_t step = std::min(sent, part.iov_len);
    part.iov_base = static_cast<unsigned char*>(part.iov_base) + step;
    part.iov_len -= step;
    sent -= step;
  }
}

Writer::Result writeAll(int socket, std::array<iovec, 2> parts, Clock::time_point deadline) {
  const std::size_t size = parts[0].iov_len + parts[1].iov_len;
  for (std::size_t done = 0; done < size;) {
    msghdr message = {};
    message.msg_iov = parts.data();
    message.msg_iovlen = parts.size();
    const ssize_t sent = ::sendmsg(socket, &message, MSG_NOSIGNAL | MSG_DONTWAIT);
    if (sent >= 0) {
      done += static_cast<std::size_t>(sent);
      advance(parts, static_cast<std::size_t>(sent));
      continue;
    }
    if (errno == EINTR) continue;
    if (errno != EAGAIN && errno != ENOBUFS) return {IPC_ERROR_SERVICE_GONE, done > 0};
    if (!awaitCapacity(socket, deadline)) return {IPC_ERROR_SEND_TIMEOUT, done > 0};
  }
  return {};
}

}  // namespace

Writer::Result Writer::write(int socket, std::span<const unsigned char> first,
                             std::span<const unsigned char> second,
                             std::chrono::milliseconds timeout) {
  const Clock::time_point deadline = Clock::now() + timeout;
  {
    std::unique_lock lock(m_mutex);
    if (!m_turn.wait_until(lock, deadline, [this] { return !m_busy; })) {
      return {IPC_ERROR_SEND_TIMEOUT, false};
    }
    if (m_broken != 0) return {m_broken, false};
    m_busy = true;
  }
  const Result result = writeAll(socket, {view(first), view(second)}, deadline);
  {
    const std::lock_guard lock(m_mutex);
    m_busy = false;
    if (result.broken) m_broken = result.error;
  }
  m_turn.notify_all();  // all have to learn of a broken connection
  return result;
}

}  // namespace lumsar::ipc
