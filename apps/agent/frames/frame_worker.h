// FrameWorker: a queue of frames, bounded in number and in bytes, the oldest of which is dropped
// when it is full, and the thread that works on them. push(), close() and the counters are
// thread-safe.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <thread>

#include "frames/frame.h"
#include "protocol/frame_queue.h"

namespace lumsar::agent {

class FrameWorker {
 public:
  // That may wait, unless a single frame is larger.
  static constexpr std::size_t kMaxBytes = std::size_t{32} << 20U;

  // `work` runs on the worker's thread and says whether the frame was delivered.
  FrameWorker(std::size_t capacity, std::function<bool(const Frame&)> work);
  // Works on what is queued, then joins.
  ~FrameWorker();

  void push(FramePtr frame);
  void close();
  // For the end of its thread, after close(). Bound to one thread.
  void wait();
  bool closed() const;
  std::uint64_t delivered() const;
  std::uint64_t dropped() const;

 private:
  void run();

  const std::function<bool(const Frame&)> m_work;
  mutable std::mutex m_mutex;
  std::condition_variable m_wakeUp;
  protocol::FrameQueue<FramePtr> m_queue;
  std::uint64_t m_delivered = 0;
  std::uint64_t m_failed = 0;
  bool m_closing = false;
  bool m_closed = false;
  std::thread m_thread;
};

}  // namespace lumsar::agent
