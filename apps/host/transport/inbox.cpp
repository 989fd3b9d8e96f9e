#include "transport/inbox.h"

#include <algorithm>
#include <asio/post.hpp>

namespace lumsar::host {

namespace {

// Small pieces are handed over together, but no more of them than need to be copied at a time.
constexpr std::size_t kChunk = 64U << 10U;

}  // namespace

void Inbox::listen(Transport::Listener* listener) {
  m_listener = listener;
  const std::lock_guard lock(m_mutex);
  m_ended = listener == nullptr;
  if (m_ended) {
    m_events.clear();
    m_bytes = 0;
  }
  m_roomMade.notify_all();
}

void Inbox::received(std::span<const unsigned char> bytes) {
  std::unique_lock lock(m_mutex);
  m_roomMade.wait(lock, [this] { return m_bytes < kMaxBytes || m_ended; });
  if (m_ended) return;
  if (!fitsIntoLast(bytes.size())) {
    m_events.push_back({Kind::Received, {}, {}});
    m_events.back().bytes.reserve(std::max(bytes.size(), kChunk));
  }
  auto& waiting = m_events.back().bytes;
  waiting.insert(waiting.end(), bytes.begin(), bytes.end());
  m_bytes += bytes.size();
  deliverLater();
}

bool Inbox::fitsIntoLast(std::size_t size) const {
  if (m_events.empty() || m_events.back().kind != Kind::Received) return false;
  return m_events.back().bytes.size() + size <= kChunk;
}

void Inbox::put(Event event) {
  const std::lock_guard lock(m_mutex);
  if (m_ended) return;
  m_events.push_back(std::move(event));
  deliverLater();
}

void Inbox::deliverLater() {
  if (m_deliveryPosted) return;
  m_deliveryPosted = true;
  asio::post(m_loop, [self = shared_from_this()] { self->deliver(); });
}

// One event a turn: signals and timers must not wait until a flood is over.
void Inbox::deliver() {
  Event event;
  {
    const std::lock_guard lock(m_mutex);
    m_deliveryPosted = false;
    if (m_events.empty()) return;
    event = std::move(m_events.front());
    m_events.pop_front();
    if (!m_events.empty()) deliverLater();
  }
  if (m_listener == nullptr) return;
  tell(*m_listener, event);
  handled(event.bytes.size());
}

void Inbox::handled(std::size_t size) {
  const std::lock_guard lock(m_mutex);
  if (m_ended) return;
  m_bytes -= size;
  m_roomMade.notify_all();
}

void Inbox::tell(Transport::Listener& listener, const Event& event) {
  switch (event.kind) {
    case Kind::Opened:
      return listener.channelOpened();
    case Kind::Received:
      return listener.channelReceived(event.bytes);
    case Kind::Closed:
      return listener.channelClosed(event.why);
    case Kind::Trouble:
      return listener.channelTrouble(event.why);
    case Kind::Refused:
      return listener.channelRefused(event.why);
  }
}

}  // namespace lumsar::host
