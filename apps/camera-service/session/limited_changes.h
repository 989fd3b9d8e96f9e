// LimitedChanges: carries out what a VM wishes, only so often within a time. The last wish counts,
// though it may have to wait. Bound to the main loop.
#pragma once

#include <asio/io_context.hpp>
#include <asio/steady_timer.hpp>
#include <chrono>
#include <functional>
#include <memory>
#include <utility>

#include "base/rate_limit.h"

namespace lumsar::service {

class LimitedChanges {
 public:
  LimitedChanges(asio::io_context& io, int most, std::chrono::seconds time)
      : m_limit(most, time), m_time(time), m_timer(io) {}

  // Now, or when the time is over: then what was wished last.
  void apply(std::function<void()> change) {
    if (m_waiting) {
      *m_waiting = std::move(change);
    } else if (m_limit.allow()) {
      change();
    } else {
      wait(std::move(change));
    }
  }
  void cancel() { m_waiting.reset(); }

 private:
  void wait(std::function<void()> change) {
    m_waiting = std::make_shared<std::function<void()>>(std::move(change));
    m_timer.expires_after(m_time);
    m_timer.async_wait([this, weak = std::weak_ptr(m_waiting)](asio::error_code stopped) {
      const auto waiting = weak.lock();
      if (stopped || !waiting) return;
      m_waiting.reset();
      apply(std::move(*waiting));
    });
  }

  base::RateLimit m_limit;
  const std::chrono::seconds m_time;
  asio::steady_timer m_timer;
  std::shared_ptr<std::function<void()>> m_waiting;
};

}  // namespace lumsar::service
