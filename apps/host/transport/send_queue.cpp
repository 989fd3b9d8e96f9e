#include "transport/send_queue.h"

#include "protocol/camera_record.h"
#include "protocol/hello.h"

namespace lumsar::host {

int SendQueue::push(std::span<const unsigned char> fragment) {
  {
    const std::lock_guard lock(m_mutex);
    auto message = m_fragments.add(fragment);
    if (!message) return 0;
    if (!FragmentJoiner::isValid(*message) || !enqueue(std::move(*message))) {
      ++m_counters.messagesRefused;
      return -1;
    }
  }
  if (m_wake) m_wake();
  return 0;
}

bool SendQueue::enqueue(Bytes message) {
  const std::size_t size = message.size();
  if (const auto hello = protocol::readHello(message)) {
    ++m_counters.hellos;
    m_counters.helloToken = hello->payload.token;
  }
  const auto frame = protocol::readRecord(message, CameraDataKind::Frame);
  if (!frame) return m_messages.pushControl(std::move(message), size);
  const std::uint64_t now = cameraClock();
  m_latencies.add(now > frame->time ? now - frame->time : 0);
  ++m_counters.frames;
  m_counters.frameBytes += size;
  m_messages.pushFrame(std::move(message), size);
  return true;
}

std::optional<SendQueue::Bytes> SendQueue::pop() {
  const std::lock_guard lock(m_mutex);
  if (!m_open) return std::nullopt;
  auto item = m_messages.pop();
  if (!item) return std::nullopt;
  if (item->isFrame) ++m_counters.framesSent;
  m_counters.bytesSent += item->size;
  return std::move(item->entry);
}

void SendQueue::reset(bool open) {
  const std::lock_guard lock(m_mutex);
  m_messages.clear();
  m_fragments.discard();
  m_open = open;
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
