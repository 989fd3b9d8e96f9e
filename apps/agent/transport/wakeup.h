// Wakeup: makes the channel's thread look again. Owned by Program.
// wake() may be called from any thread; the rest is bound to the channel's thread.
#ifndef LUMSAR_AGENT_TRANSPORT_WAKEUP_H
#define LUMSAR_AGENT_TRANSPORT_WAKEUP_H

#include <sys/eventfd.h>

#include <cstdint>

#include "base/fd.h"

namespace lumsar::agent {

class Wakeup {
 public:
  Wakeup() : m_event(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

  void wake() const {
    const std::uint64_t one = 1;
    if (write(m_event.get(), &one, sizeof one) < 0) return;  // it is awake already
  }
  void clear() const {
    std::uint64_t count = 0;
    if (read(m_event.get(), &count, sizeof count) < 0) return;
  }
  int descriptor() const { return m_event.get(); }

 private:
  base::UniqueFd m_event;
};

}  // namespace lumsar::agent

#endif
