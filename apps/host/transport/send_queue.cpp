#include "transport/send_queue.h"

#include "protocol/camera_record.h"
#include "protocol/hello.h"

namespace lumsar::host {

void SendQueue::setSendNow(SendNow sendNow) {
  const std::lock_guard lock(m_mutex);
  m_sendNow = std::move(sendNow);
}

int SendQueue::push(std::span<const unsigned char> fragment) {
  {
    const std::lock_guard lock(m_mutex);
    if (!sendNow(fragment) && !keep(fragment)) {
      ++m_counters.messagesRefused;
      return -1;
    }
    if (m_messages.empty()) return 0;
  }
  if (m_wake) m_wake();
  return 0;
}

bool SendQueue::keep(std::span<const unsigned char> fragment) {
  auto message = m_fragments.add(fragment);
  return !message || (FragmentJoiner::isValid(*message) && enqueue(std::move(*message)));
}

// True for a frame.
bool SendQueue::countMessage(std::span<const unsigned char> message) {
  if (const auto hello = protocol::readHello(message)) {
    ++m_counters.hellos;
    m_counters.helloToken = hello->payload.token;
  }
  const auto frame = protocol::readRecord(message, CameraDataKind::Frame);
  if (!frame) {
    if (m_tap) m_tap->pass(message);
    return false;
  }
  const std::uint64_t now = cameraClock();
  m_latencies.add(now > frame->time ? now - frame->time : 0);
  ++m_counters.frames;
  m_counters.frameBytes += message.size();
  return true;
}

bool SendQueue::enqueue(Bytes message) {
  const std::size_t size = message.size();
  if (!countMessage(message)) return m_messages.pushControl(std::move(message), size);
  m_messages.pushFrame(std::move(message), size);
  return true;
}

bool SendQueue::sendNow(std::span<const unsigned char> message) {
  if (!m_sendNow || !m_open || !m_idle || !m_messages.empty()) return false;
  if (!m_fragments.isWhole(message)) return false;
  const std::size_t sent = m_sendNow(message);
  if (sent == 0) return false;
  const bool isFrame = countMessage(message);
  if (isFrame) ++m_counters.framesSent;
  m_counters.bytesSent += sent;
  if (isFrame && m_tap) m_tap->sent(message);
  if (sent == message.size()) return true;
  // The rest can no longer be dropped. Before the queue's lock is released nothing comes between.
  const auto rest = message.subspan(sent);
  m_idle = false;
  static_cast<void>(m_messages.pushControl({rest.begin(), rest.end()}, rest.size()));
  return true;
}

std::optional<SendQueue::Bytes> SendQueue::pop() {
  auto item = next();
  if (!item) return std::nullopt;
  // Without the lock: who pushes does not wait for a copy.
  if (item->isFrame && m_tap) m_tap->sent(item->entry);
  return std::move(item->entry);
}

std::optional<protocol::FrameQueue<SendQueue::Bytes>::Item> SendQueue::next() {
  const std::lock_guard lock(m_mutex);
  if (!m_open) return std::nullopt;
  auto item = m_messages.pop();
  m_idle = !item;
  if (!item) return std::nullopt;
  if (item->isFrame) ++m_counters.framesSent;
  m_counters.bytesSent += item->size;
  return item;
}

void SendQueue::reset(bool open) {
  const std::lock_guard lock(m_mutex);
  m_messages.clear();
  m_fragments.discard();
  if (m_tap) m_tap->forget();
  m_open = open;
  m_idle = false;
}

SendQueue::Counters SendQueue::counters() const {
  const std::lock_guard lock(m_mutex);
  Counters counters = m_counters;
  counters.medianLatency = m_latencies.median();
  counters.worstLatency = m_latencies.worst();
  counters.framesDropped = m_messages.dropped();
  return counters;
}

}  // namespace lumsar::host
