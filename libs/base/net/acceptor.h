// Accepts connections at a listening socket. When the process is out of descriptors it pauses, as
// the waiting connection would make poll() return at once, again and again.
#pragma once

#include <chrono>

#include "base/back_off.h"
#include "base/net/socket_listener.h"

namespace lumsar::base {

class Acceptor {
 public:
  explicit Acceptor(SocketListener listener) : m_listener(std::move(listener)) {}

  // As SocketListener::name().
  const std::string& name() const { return m_listener.name(); }
  // What to poll for connections; -1 during a pause, which ends without any event.
  int descriptor() const { return pausing() ? -1 : m_listener.get(); }
  bool pausing() const { return Clock::now() < m_resume; }
  // When poll() has to return for the pause to end; never if there is none.
  std::chrono::steady_clock::time_point resumes() const {
    return pausing() ? m_resume : Clock::time_point::max();
  }
  // The next connection; nothing if none is waiting or there is no descriptor for it.
  UniqueFd accept();

  static constexpr BackOff::Duration kLongestPause{2000};

 private:
  using Clock = std::chrono::steady_clock;

  SocketListener m_listener;
  BackOff m_backOff{BackOff::Duration{100}, kLongestPause};
  Clock::time_point m_resume;
};

}  // namespace lumsar::base
