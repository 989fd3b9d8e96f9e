// Messages and their queue: see outgoing.h. Called by MessageStream and the senders, on their one
// thread.
#include "ipc/server/outgoing.h"

#include <algorithm>
#include <cstring>

namespace lumsar::ipc {

Message::Message(std::uint32_t type, std::size_t payloadSize, std::uint32_t param)
    : m_data(std::make_unique_for_overwrite<unsigned char[]>(kHeaderSize + payloadSize)),
      m_size(kHeaderSize + payloadSize) {
  RedirMsgHeader header;
  header.type = type;
  header.length = static_cast<std::uint32_t>(payloadSize);
  header.param = param;
  setHeader(header);
}

Message::Message(std::uint32_t type, std::string_view payload, std::uint32_t param)
    : Message(type, payload.size(), param) {
  std::ranges::copy(payload, this->payload().begin());
}

void Message::setHeader(const RedirMsgHeader& header) {
  std::memcpy(m_data.get(), &header, kHeaderSize);
}

bool OutQueue::push(Outgoing outgoing) {
  count(outgoing, true);
  m_queue.push_back(std::move(outgoing));
  while (m_frames > 1 && (m_frames > m_limits.frames || m_frameBytes > m_limits.frameBytes)) {
    dropOldestFrame();
  }
  return m_controls <= 1 || m_controlBytes <= m_limits.controlBytes;
}

std::optional<Outgoing> OutQueue::pop() {
  if (m_queue.empty()) return std::nullopt;
  Outgoing outgoing = std::move(m_queue.front());
  m_queue.pop_front();
  count(outgoing, false);
  return outgoing;
}

void OutQueue::count(const Outgoing& outgoing, bool added) {
  const std::size_t size = outgoing.message.bytes().size();
  std::size_t& bytes = outgoing.frame ? m_frameBytes : m_controlBytes;
  std::size_t& messages = outgoing.frame ? m_frames : m_controls;
  bytes = added ? bytes + size : bytes - size;
  messages = added ? messages + 1 : messages - 1;
}

void OutQueue::dropOldestFrame() {
  const auto oldest = std::ranges::find_if(m_queue, &Outgoing::frame);
  count(*oldest, false);
  ++m_dropped;
  if (oldest->onDrop) oldest->onDrop();
  m_queue.erase(oldest);
}

}  // namespace lumsar::ipc
