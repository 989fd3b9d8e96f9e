// SendQueue: what the plug-in wants sent to the VM, as complete messages in order, until a
// transport takes them. Pushing never blocks; when the VM is slow, the oldest frames are dropped.
// Thread-safe.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <span>

#include "base/latency.h"
#include "protocol/frame_queue.h"
#include "transport/fragment_joiner.h"
#include "transport/preview_tap.h"

namespace lumsar::host {

// A few frames wait for the VM, so that they stay fresh. A VM that leaves this much of the control
// messages unread has stalled.
inline constexpr protocol::QueueLimits kSendLimits{
    .frames = 8, .frameBytes = 16U << 20U, .controlBytes = 16U << 20U};

class SendQueue {
 public:
  using Bytes = FragmentJoiner::Bytes;
  struct Counters {
    std::uint64_t frames = 0;  // as the plug-in hands them over
    std::uint64_t frameBytes = 0;
    std::uint64_t medianLatency = 0;  // µs, from capture to here
    std::uint64_t worstLatency = 0;
    std::uint64_t framesSent = 0;  // that a transport has taken
    std::uint64_t bytesSent = 0;
    std::uint64_t framesDropped = 0;
    std::uint64_t messagesRefused = 0;
    std::uint64_t hellos = 0;
    std::uint16_t helloToken = 0;  // of the latest HELLO
  };

  // `wake` is called after a push, on the pushing thread and without the queue's lock.
  void setWake(std::function<void()> wake) { m_wake = std::move(wake); }

  // Gets copies of the frames that leave. Before the transport starts.
  void setTap(std::shared_ptr<PreviewTap> tap) { m_tap = std::move(tap); }

  // How a transport sends on the pushing thread: it returns, at once, how many bytes the line has
  // taken. It is asked when nothing waits, neither here nor in the transport, so that a message
  // needs neither a copy nor a change of threads.
  using SendNow = std::function<std::size_t(std::span<const unsigned char> message)>;
  void setSendNow(SendNow sendNow);

  // A complete message or the next fragment of one. 0, or -1 when it cannot be kept.
  int push(std::span<const unsigned char> fragment);

  // The next message, empty when there is none.
  std::optional<Bytes> pop();

  // While it is closed, nothing leaves it. Opening and closing both empty the queue.
  void open() { reset(true); }
  void close() { reset(false); }

  Counters counters() const;

 private:
  bool keep(std::span<const unsigned char> fragment);
  bool countMessage(std::span<const unsigned char> message);
  bool enqueue(Bytes message);
  bool sendNow(std::span<const unsigned char> message);
  void reset(bool open);
  std::optional<protocol::FrameQueue<Bytes>::Item> next();

  mutable std::mutex m_mutex;
  std::function<void()> m_wake;
  std::shared_ptr<PreviewTap> m_tap;
  FragmentJoiner m_fragments;
  protocol::FrameQueue<Bytes> m_messages{kSendLimits};
  SendNow m_sendNow;
  bool m_open = true;
  bool m_idle = false;  // the transport has sent all that it has taken
  base::Latencies m_latencies;
  Counters m_counters;
};

}  // namespace lumsar::host
