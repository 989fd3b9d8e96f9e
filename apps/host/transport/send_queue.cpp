#include "transport/send_queue.h"

#include <algorithm>

#include "lumsar/assembler.h"
#include "lumsar/camera_data.h"
#include "lumsar/message.h"

namespace lumsar::host {

namespace {

// The record header of a camera frame, nothing for every other message.
std::optional<CameraDataHeader> frameRecord(std::span<const unsigned char> message) {
  if (readHeader(message.data()).type != MSG_DATA) return std::nullopt;
  auto payload = message.subspan(kHeaderSize);
  const auto record = take<CameraDataHeader>(payload);
  if (!record || record->kind != static_cast<std::uint16_t>(CameraDataKind::Frame)) return {};
  return record;
}

}  // namespace

int SendQueue::push(std::span<const unsigned char> piece) {
  {
    const std::lock_guard lock(m_mutex);
    Partial& sender = m_partial[std::this_thread::get_id()];
    piece = piece.subspan(skip(sender, piece.size()));
    Bytes& partial = sender.bytes;
    if (partial.empty() && piece.size() >= kHeaderSize) {
      const std::uint32_t length = readHeader(piece.data()).length;
      partial.reserve(kHeaderSize + std::min(length, kMaxPayload));
    }
    partial.insert(partial.end(), piece.begin(), piece.end());
    if (partial.size() < kHeaderSize) return 0;
    const RedirMsgHeader header = readHeader(partial.data());
    const bool valid = header.magic == kMagic && header.length <= kMaxPayload;
    if (valid && partial.size() < kHeaderSize + header.length) return 0;

    Bytes message = std::move(m_partial.extract(std::this_thread::get_id()).mapped().bytes);
    if (!valid || !enqueue(std::move(message))) {
      ++m_counters.messagesRefused;
      return -1;
    }
  }
  if (m_wake) m_wake();
  return 0;
}

// How much of the next `size` bytes belongs to a message whose beginning is forgotten.
std::size_t SendQueue::skip(Partial& partial, std::size_t size) {
  const std::size_t skipped = std::min(partial.toSkip, size);
  partial.toSkip -= skipped;
  return skipped;
}

// How much is still to come of the message that `partial` is in the middle of.
std::size_t SendQueue::missing(const Partial& partial) {
  if (partial.bytes.size() < kHeaderSize) return partial.toSkip;
  return kHeaderSize + readHeader(partial.bytes.data()).length - partial.bytes.size();
}

bool SendQueue::enqueue(Bytes message) {
  if (readHeader(message.data()).type == MSG_HELLO && message.size() >= sizeof(HelloMessage)) {
    ++m_counters.hellos;
    std::memcpy(&m_counters.helloToken, message.data() + kHeaderSize, sizeof(std::uint16_t));
  }
  const auto record = frameRecord(message);
  if (record) {
    m_fromPlugin.add(record->time, message.size());
    ++m_frames;
    m_frameBytes += message.size();
    dropOldFrames();
  } else {
    if (m_controlBytes + message.size() > kMaxQueuedControlBytes) return false;
    m_controlBytes += message.size();
  }
  m_entries.push_back({std::move(message), record.has_value()});
  return true;
}

// Called with the new frame counted but not yet in line: it is never the one to go.
void SendQueue::dropOldFrames() {
  auto entry = m_entries.begin();
  while (entry != m_entries.end() &&
         (m_frames > kMaxQueuedFrames || m_frameBytes > kMaxQueuedFrameBytes)) {
    if (!entry->isFrame) {
      ++entry;
      continue;
    }
    --m_frames;
    m_frameBytes -= entry->message.size();
    ++m_counters.framesDropped;
    entry = m_entries.erase(entry);
  }
}

std::optional<SendQueue::Bytes> SendQueue::pop() {
  const std::lock_guard lock(m_mutex);
  if (m_entries.empty()) return std::nullopt;
  Entry entry = std::move(m_entries.front());
  m_entries.pop_front();
  if (entry.isFrame) {
    --m_frames;
    m_frameBytes -= entry.message.size();
    ++m_counters.framesSent;
  } else {
    m_controlBytes -= entry.message.size();
  }
  m_counters.bytesSent += entry.message.size();
  return std::move(entry.message);
}

void SendQueue::clear() {
  const std::lock_guard lock(m_mutex);
  m_counters.framesDropped += m_frames;
  m_entries.clear();
  for (auto& [thread, partial] : m_partial) partial = {{}, missing(partial)};
  std::erase_if(m_partial, [](const auto& sender) { return sender.second.toSkip == 0; });
  m_frames = m_frameBytes = m_controlBytes = 0;
}

SendQueue::Counters SendQueue::counters() const {
  const std::lock_guard lock(m_mutex);
  Counters counters = m_counters;
  counters.fromPlugin = m_fromPlugin.summary();
  return counters;
}

}  // namespace lumsar::host
