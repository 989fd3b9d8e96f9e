// Outgoing messages of the service's side: one message in a buffer of its own, and the bounded
// queue in which messages wait for a slow receiver. Used by MessageStream and by those who send.
// No I/O, no lock: each object is bound to one thread at a time.
#ifndef LUMSAR_IPC_SERVER_OUTGOING_H
#define LUMSAR_IPC_SERVER_OUTGOING_H

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string_view>

#include "lumsar/message.h"

namespace lumsar::ipc {

class Message {
 public:
  // Header filled, payload uninitialised: it is written once, by the caller.
  Message(std::uint32_t type, std::size_t payloadSize, std::uint32_t param = 0);
  Message(std::uint32_t type, std::string_view payload, std::uint32_t param = 0);

  std::span<const unsigned char> bytes() const { return {m_data.get(), m_size}; }
  std::span<unsigned char> payload() { return {m_data.get() + kHeaderSize, m_size - kHeaderSize}; }
  void setHeader(const RedirMsgHeader& header);
  RedirMsgHeader header() const { return readHeader(m_data.get()); }

 private:
  std::unique_ptr<unsigned char[]> m_data;
  std::size_t m_size;
};

// A message in the queue. A frame may be dropped while it waits; control messages never are.
struct Outgoing {
  Message message;
  bool frame = false;
  std::function<void(Message&)> onLeave = {};  // last touch before it is written to the socket
  std::function<void()> onDrop = {};
};

struct QueueLimits {
  std::size_t frames = 4;                // a receiver this far behind looks at old pictures
  std::size_t frameBytes = 16U << 20U;   // but one frame may wait, however large
  std::size_t controlBytes = 1U << 20U;  // behind this the receiver is given up; one may be larger
};

class OutQueue {
 public:
  explicit OutQueue(QueueLimits limits = {}) : m_limits(limits) {}

  // Queues it, dropping the oldest frames that exceed the limits. False when the control messages
  // exceed theirs: the receiver should be disconnected.
  bool push(Outgoing outgoing);
  std::optional<Outgoing> pop();

  bool empty() const { return m_queue.empty(); }
  std::size_t frames() const { return m_frames; }
  std::size_t bytes() const { return m_frameBytes + m_controlBytes; }
  std::uint64_t dropped() const { return m_dropped; }

 private:
  void count(const Outgoing& outgoing, bool added);
  void dropOldestFrame();

  QueueLimits m_limits;
  std::deque<Outgoing> m_queue;
  std::size_t m_frames = 0;
  std::size_t m_frameBytes = 0;
  std::size_t m_controls = 0;
  std::size_t m_controlBytes = 0;
  std::uint64_t m_dropped = 0;
};

}  // namespace lumsar::ipc

#endif
