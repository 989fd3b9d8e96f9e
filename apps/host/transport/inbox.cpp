#include "transport/inbox.h"

#include <algorithm>
#include <asio/post.hpp>
#include <utility>

namespace lumsar::host {

namespace {

// Small parts are handed over together, but no more of them than need to be copied at a time.
constexpr std::size_t kChunk = 64U << 10U;

}  // namespace

void Inbox::end() {
  const std::lock_guard lock(m_mutex);
  m_ended = true;
  m_events.clear();
  m_lastBytes.reset();
  m_onCapacity = nullptr;
  m_capacity.notify_all();
}

void Inbox::opened() {
  const std::lock_guard lock(m_mutex);
  put([](ChannelListener& listener) { listener.channelOpened(); });
}

void Inbox::closed(const std::string& why) {
  const std::lock_guard lock(m_mutex);
  put([why](ChannelListener& listener) { listener.channelClosed(why); });
}

void Inbox::unavailable(const std::string& why) {
  const std::lock_guard lock(m_mutex);
  put([why](ChannelListener& listener) { listener.channelUnavailable(why); });
}

void Inbox::refused(const std::string& why) {
  const std::lock_guard lock(m_mutex);
  put([why](ChannelListener& listener) { listener.channelRefused(why); });
}

void Inbox::received(std::span<const unsigned char> bytes) {
  std::unique_lock lock(m_mutex);
  m_capacity.wait(lock, [this] { return hasCapacity(); });
  take(bytes);
}

bool Inbox::tryReceived(std::span<const unsigned char> bytes) {
  const std::lock_guard lock(m_mutex);
  if (!hasCapacity()) return false;
  take(bytes);
  return true;
}

// Called with the lock held.
void Inbox::take(std::span<const unsigned char> bytes) {
  if (m_ended) return;
  m_bytes += bytes.size();
  if (appendToLast(bytes)) return;
  auto chunk = std::make_shared<std::vector<unsigned char>>();
  chunk->reserve(std::max(bytes.size(), kChunk));
  chunk->assign(bytes.begin(), bytes.end());
  put([this, chunk](ChannelListener& listener) {
    listener.channelReceived(*chunk);
    freed(chunk->size());
  });
  m_lastBytes = chunk;
}

bool Inbox::appendToLast(std::span<const unsigned char> bytes) {
  if (!m_lastBytes || m_lastBytes->size() + bytes.size() > kChunk) return false;
  m_lastBytes->insert(m_lastBytes->end(), bytes.begin(), bytes.end());
  return true;
}

void Inbox::whenCapacity(std::function<void()> action) {
  {
    const std::lock_guard lock(m_mutex);
    if (m_ended) return;
    if (m_bytes >= kMaxBytes) {
      m_onCapacity = std::move(action);
      return;
    }
  }
  action();
}

// Called with the lock held.
void Inbox::put(Event event) {
  if (m_ended) return;
  m_lastBytes.reset();
  m_events.push_back(std::move(event));
  deliverLater();
}

void Inbox::deliverLater() {
  if (std::exchange(m_deliveryPosted, true)) return;
  asio::post(m_executor, [self = shared_from_this()] { self->deliver(); });
}

void Inbox::deliver() {
  Event event;
  {
    const std::lock_guard lock(m_mutex);
    m_deliveryPosted = false;
    if (m_events.empty()) return;
    event = std::move(m_events.front());
    m_events.pop_front();
    if (m_events.empty()) m_lastBytes.reset();
    if (!m_events.empty()) deliverLater();
  }
  event(*m_listener);
}

void Inbox::freed(std::size_t size) {
  std::function<void()> action;
  {
    const std::lock_guard lock(m_mutex);
    if (m_ended) return;
    m_bytes -= size;
    if (m_bytes < kMaxBytes) action = std::exchange(m_onCapacity, nullptr);
    m_capacity.notify_all();
  }
  if (action) action();
}

}  // namespace lumsar::host
