// Messages as the tests make and take them, and a queue on which a test waits for them.
// MessageQueue is thread-safe.
#ifndef LUMSAR_TESTS_INTEGRATION_RDP_MESSAGES_H
#define LUMSAR_TESTS_INTEGRATION_RDP_MESSAGES_H

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "lumsar/camera_data.h"
#include "lumsar/message.h"

namespace lumsar_test {

using Bytes = std::vector<unsigned char>;
using std::chrono::milliseconds;
using std::chrono::seconds;

inline constexpr milliseconds kPatience{20000};  // for what is bound to come

inline Bytes message(std::uint32_t type, std::span<const unsigned char> payload = {}) {
  lumsar::RedirMsgHeader header;
  header.type = type;
  header.length = static_cast<std::uint32_t>(payload.size());
  Bytes bytes(lumsar::kHeaderSize + payload.size());
  std::memcpy(bytes.data(), &header, sizeof header);
  std::copy(payload.begin(), payload.end(), bytes.begin() + lumsar::kHeaderSize);
  return bytes;
}

// `size` bytes that look like nothing in particular, other ones for each seed.
inline Bytes noise(std::size_t size, std::uint32_t seed) {
  Bytes bytes(size);
  std::uint32_t state = seed * 2654435761U + 12345;
  for (unsigned char& byte : bytes) {
    state = state * 1664525U + 1013904223U;
    byte = static_cast<unsigned char>(state >> 24U);
  }
  if (size > 0) bytes[0] = 0xEE;  // not the number of any kind of record
  return bytes;
}

// What the camera service sends for one frame of a camera.
inline Bytes frame(std::uint32_t sequence, std::size_t size) {
  lumsar::CameraDataHeader record;
  record.kind = static_cast<std::uint16_t>(lumsar::CameraDataKind::Frame);
  record.time = lumsar::cameraClock();
  lumsar::CameraFrame fields;
  fields.sequence = sequence;
  Bytes bytes = noise(sizeof record + sizeof fields + size, sequence);
  std::memcpy(bytes.data(), &record, sizeof record);
  std::memcpy(bytes.data() + sizeof record, &fields, sizeof fields);
  return message(lumsar::IPC_MSG_DATA, bytes);
}

inline lumsar::RedirMsgHeader headerOf(const Bytes& bytes) {
  return lumsar::readHeader(bytes.data());
}

inline Bytes payloadOf(const Bytes& bytes) {
  return {bytes.begin() + lumsar::kHeaderSize, bytes.end()};
}

class MessageQueue {
 public:
  void put(std::span<const unsigned char> bytes) {
    {
      const std::lock_guard lock(m_mutex);
      m_messages.emplace_back(bytes.begin(), bytes.end());
    }
    m_arrived.notify_all();
  }

  // The next message, or nothing after `patience`.
  std::optional<Bytes> next(milliseconds patience = kPatience) {
    std::unique_lock lock(m_mutex);
    if (!m_arrived.wait_for(lock, patience, [this] { return !m_messages.empty(); })) return {};
    Bytes bytes = std::move(m_messages.front());
    m_messages.pop_front();
    return bytes;
  }

  // The next message of `type`; others before it are dropped.
  std::optional<Bytes> nextOf(std::uint32_t type, milliseconds patience = kPatience) {
    const auto end = std::chrono::steady_clock::now() + patience;
    while (true) {
      const auto left =
          std::chrono::duration_cast<milliseconds>(end - std::chrono::steady_clock::now());
      auto bytes = next(std::max(left, milliseconds(0)));
      if (!bytes || headerOf(*bytes).type == type) return bytes;
    }
  }

  void clear() {
    const std::lock_guard lock(m_mutex);
    m_messages.clear();
  }

 private:
  std::mutex m_mutex;
  std::condition_variable m_arrived;
  std::deque<Bytes> m_messages;
};

}  // namespace lumsar_test

#endif
