#include "base/net/acceptor.h"

#include <sys/socket.h>

#include <cerrno>

#include "base/log.h"

namespace lumsar::base {

UniqueFd Acceptor::accept() {
  if (pausing()) return UniqueFd();
  UniqueFd socket(accept4(m_listener.get(), nullptr, nullptr, SOCK_CLOEXEC));
  if (socket) {
    m_backOff.reset();
  } else if (errno != EAGAIN && errno != EINTR && errno != ECONNABORTED) {
    if (m_backOff.isReset()) {
      logWarning("cannot accept a connection on {}: {}; trying again", name(), systemError());
    }
    m_resume = Clock::now() + m_backOff.next();
  }
  return socket;
}

}  // namespace lumsar::base
