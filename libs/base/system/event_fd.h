// A descriptor that makes a thread's poll() return. wake() is thread-safe.
#pragma once

#include <sys/eventfd.h>

#include <cerrno>
#include <system_error>

#include "base/system/fd.h"

namespace lumsar::base {

class EventFd {
 public:
  // Throws std::system_error when the process is out of descriptors.
  EventFd() : m_event(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (!m_event) throw std::system_error(errno, std::generic_category(), "eventfd");
  }

  int get() const { return m_event.get(); }
  void wake() const { eventfd_write(m_event.get(), 1); }
  void clear() const {
    eventfd_t ignored = 0;
    eventfd_read(m_event.get(), &ignored);
  }

 private:
  UniqueFd m_event;
};

}  // namespace lumsar::base
