// SendQueue: what the plug-in wants sent to the VM, as whole messages in order, until a transport
// takes them. Pushing never waits; when the VM is slow, whole frames are dropped, oldest first.
// Thread-safe. Pushed to by the plug-in's callers, popped by one transport.
#ifndef LUMSAR_HOST_TRANSPORT_SEND_QUEUE_H
#define LUMSAR_HOST_TRANSPORT_SEND_QUEUE_H

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <span>
#include <thread>
#include <vector>

#include "transport/frame_stats.h"

namespace lumsar::host {

// Frames that wait for the VM: a few, so that they stay fresh; at least one, whatever its size.
inline constexpr std::size_t kMaxQueuedFrames = 8;
inline constexpr std::size_t kMaxQueuedFrameBytes = 16U << 20U;
// Control messages are never dropped; a VM that lets this much pile up takes nothing at all.
inline constexpr std::size_t kMaxQueuedControlBytes = 16U << 20U;

class SendQueue {
 public:
  using Bytes = std::vector<unsigned char>;
  struct Counters {
    FrameStats::Summary fromPlugin;  // frames as the plug-in hands them over
    std::uint64_t framesSent = 0;    // frames that a transport has taken
    std::uint64_t bytesSent = 0;
    std::uint64_t framesDropped = 0;
    std::uint64_t messagesRefused = 0;
    std::uint64_t hellos = 0;
    std::uint16_t helloToken = 0;  // of the latest HELLO
  };

  // `wake` is called after a push, on the pushing thread and outside of the queue's lock.
  void setWake(std::function<void()> wake) { m_wake = std::move(wake); }

  // Takes a message or the next piece of one. The pieces of one message come from one thread;
  // those of another thread's message may come in between. 0, or -1 when it cannot be kept.
  int push(std::span<const unsigned char> piece);

  // The next message, empty when there is none.
  std::optional<Bytes> pop();

  // Forgets what waits: its channel is gone.
  void clear();

  Counters counters() const;

 private:
  struct Partial {
    Bytes bytes;
    std::size_t toSkip = 0;  // what is still to come of a message whose beginning is forgotten
  };
  struct Entry {
    Bytes message;
    bool isFrame;
  };

  static std::size_t skip(Partial& partial, std::size_t size);
  static std::size_t missing(const Partial& partial);
  bool enqueue(Bytes message);
  void dropOldFrames();

  mutable std::mutex m_mutex;
  std::function<void()> m_wake;
  std::map<std::thread::id, Partial> m_partial;
  std::deque<Entry> m_entries;
  std::size_t m_frames = 0;
  std::size_t m_frameBytes = 0;
  std::size_t m_controlBytes = 0;
  FrameStats m_fromPlugin;
  Counters m_counters;
};

}  // namespace lumsar::host

#endif
