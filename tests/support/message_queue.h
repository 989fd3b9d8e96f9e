// A queue of messages on which a test waits. Thread-safe.
#pragma once

#include <condition_variable>
#include <deque>
#include <mutex>
#include <optional>

#include "support/eventually.h"
#include "support/messages.h"

namespace lumsar::test {

class MessageQueue {
 public:
  void put(View bytes) {
    const std::lock_guard lock(m_mutex);
    m_messages.emplace_back(bytes.begin(), bytes.end());
    m_arrived.notify_all();
  }

  // The next message, or nothing after `limit`.
  std::optional<Bytes> next(milliseconds limit = kTimeout) {
    return takeIf([](const Bytes&) { return true; }, limit);
  }
  // The next message of `type`; others before it are dropped.
  std::optional<Bytes> nextOf(std::uint32_t type, milliseconds limit = kTimeout) {
    return takeIf([type](const Bytes& bytes) { return headerOf(bytes).type == type; }, limit);
  }

  void clear() {
    const std::lock_guard lock(m_mutex);
    m_messages.clear();
  }

 private:
  template <class Wanted>
  std::optional<Bytes> takeIf(Wanted wanted, milliseconds limit) {
    std::unique_lock lock(m_mutex);
    const bool came = m_arrived.wait_for(lock, limit, [&] {
      while (!m_messages.empty() && !wanted(m_messages.front())) m_messages.pop_front();
      return !m_messages.empty();
    });
    if (!came) return std::nullopt;
    Bytes bytes = std::move(m_messages.front());
    m_messages.pop_front();
    return bytes;
  }

  std::mutex m_mutex;
  std::condition_variable m_arrived;
  std::deque<Bytes> m_messages;
};

}  // namespace lumsar::test
