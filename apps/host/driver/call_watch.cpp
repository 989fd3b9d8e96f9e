#include "driver/call_watch.h"

#include <asio/post.hpp>
#include <utility>

namespace lumsar::host {

bool CallWatch::run(std::chrono::milliseconds timeout, const std::function<void()>& call,
                    std::function<void()> onStall) {
  {
    const std::lock_guard lock(m_mutex);
    m_deadline = Clock::now() + timeout;
    m_stalled = false;
    m_onStall = std::move(onStall);
    // One timer serves all calls that follow each other quickly.
    if (m_deadline < m_armedFor) {
      m_armedFor = m_deadline;
      asio::post(m_timer.get_executor(), [this] { watch(); });
    }
  }
  call();
  const std::lock_guard lock(m_mutex);
  m_deadline = kNever;
  return !m_stalled;
}

void CallWatch::watch() {
  std::function<void()> onStall;
  {
    const std::lock_guard lock(m_mutex);
    m_armedFor = m_stalled ? kNever : m_deadline;
    if (m_armedFor == kNever) return;
    if (Clock::now() < m_armedFor) {
      m_timer.expires_at(m_armedFor);
      return m_timer.async_wait([this](std::error_code error) {
        if (!error) watch();
      });
    }
    m_stalled = true;
    m_armedFor = kNever;
    onStall = std::move(m_onStall);
  }
  onStall();
}

}  // namespace lumsar::host
