// The queue and thread behind slow sinks. Owned by a Sink.
// run() is the worker's thread; everything else may be called from any.
#include "outputs/frame_worker.h"

#include <utility>

namespace lumsar::agent {

FrameWorker::FrameWorker(std::size_t room, std::function<bool(const Frame&)> work)
    : m_room(room), m_work(std::move(work)), m_thread([this] { run(); }) {}

FrameWorker::~FrameWorker() {
  close();
  m_thread.join();
}

void FrameWorker::push(FramePtr frame) {
  {
    const std::lock_guard lock(m_mutex);
    if (m_closing) return;
    if (m_queue.size() == m_room) {
      m_queue.pop_front();
      ++m_dropped;
    }
    m_queue.push_back(std::move(frame));
  }
  m_wake.notify_one();
}

void FrameWorker::close() {
  {
    const std::lock_guard lock(m_mutex);
    m_closing = true;
  }
  m_wake.notify_one();
}

bool FrameWorker::closed() const {
  const std::lock_guard lock(m_mutex);
  return m_closed;
}

std::uint64_t FrameWorker::taken() const {
  const std::lock_guard lock(m_mutex);
  return m_taken;
}

std::uint64_t FrameWorker::dropped() const {
  const std::lock_guard lock(m_mutex);
  return m_dropped;
}

void FrameWorker::run() {
  std::unique_lock lock(m_mutex);
  for (;;) {
    m_wake.wait(lock, [this] { return m_closing || !m_queue.empty(); });
    if (m_queue.empty()) break;
    const FramePtr frame = std::move(m_queue.front());
    m_queue.pop_front();
    lock.unlock();
    const bool good = m_work(*frame);
    lock.lock();
    ++(good ? m_taken : m_dropped);
  }
  m_closed = true;
}

}  // namespace lumsar::agent
