#include "frames/frame_worker.h"

#include <utility>

namespace lumsar::agent {

FrameWorker::FrameWorker(std::size_t capacity, std::function<bool(const Frame&)> work)
    : m_work(std::move(work)),
      m_queue({.frames = capacity, .frameBytes = kMaxBytes}),
      m_thread([this] { run(); }) {}

FrameWorker::~FrameWorker() {
  close();
  wait();
}

void FrameWorker::wait() {
  if (m_thread.joinable()) m_thread.join();
}

void FrameWorker::push(FramePtr frame) {
  {
    const std::lock_guard lock(m_mutex);
    if (m_closing) return;
    const std::size_t size = frame->data.size();
    m_queue.pushFrame(std::move(frame), size);
  }
  m_wakeUp.notify_one();
}

void FrameWorker::close() {
  {
    const std::lock_guard lock(m_mutex);
    m_closing = true;
  }
  m_wakeUp.notify_one();
}

bool FrameWorker::closed() const {
  const std::lock_guard lock(m_mutex);
  return m_closed;
}

std::uint64_t FrameWorker::delivered() const {
  const std::lock_guard lock(m_mutex);
  return m_delivered;
}

std::uint64_t FrameWorker::dropped() const {
  const std::lock_guard lock(m_mutex);
  return m_queue.dropped() + m_failed;
}

void FrameWorker::run() {
  std::unique_lock lock(m_mutex);
  for (;;) {
    m_wakeUp.wait(lock, [this] { return m_closing || !m_queue.empty(); });
    const auto item = m_queue.pop();
    if (!item) break;
    lock.unlock();
    const bool good = m_work(*item->entry);
    lock.lock();
    ++(good ? m_delivered : m_failed);
  }
  m_closed = true;
}

}  // namespace lumsar::agent
