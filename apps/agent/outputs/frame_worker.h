// FrameWorker: a bounded queue of frames and the thread that works on them; when the queue is full
// the oldest frame goes. Owned by a Sink. push(), close() and the counters: any thread.
#ifndef LUMSAR_AGENT_OUTPUTS_FRAME_WORKER_H
#define LUMSAR_AGENT_OUTPUTS_FRAME_WORKER_H

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

#include "outputs/frame.h"

namespace lumsar::agent {

class FrameWorker {
 public:
  // `work` runs on the worker's thread and says whether the frame went where it should.
  FrameWorker(std::size_t room, std::function<bool(const Frame&)> work);
  // Works off what is queued, then joins.
  ~FrameWorker();

  void push(FramePtr frame);
  void close();
  bool closed() const;
  std::uint64_t taken() const;
  std::uint64_t dropped() const;

 private:
  void run();

  const std::size_t m_room;
  const std::function<bool(const Frame&)> m_work;
  mutable std::mutex m_mutex;
  std::condition_variable m_wake;
  std::deque<FramePtr> m_queue;
  std::uint64_t m_taken = 0;
  std::uint64_t m_dropped = 0;
  bool m_closing = false;
  bool m_closed = false;
  std::thread m_thread;
};

}  // namespace lumsar::agent

#endif
