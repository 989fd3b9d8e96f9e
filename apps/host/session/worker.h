// Worker: one thread that does jobs in order. The host's commands run on it, for a command may wait
// for the camera service, and the main loop, with the VM's messages, shall not wait with it.
#ifndef LUMSAR_HOST_SESSION_WORKER_H
#define LUMSAR_HOST_SESSION_WORKER_H

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

namespace lumsar::host {

class Worker {
 public:
  Worker() : m_thread([this] { run(); }) {}
  // Finishes the job in progress and drops the others.
  ~Worker() {
    {
      const std::lock_guard lock(m_mutex);
      m_stopping = true;
    }
    m_wake.notify_one();
    m_thread.join();
  }
  Worker(const Worker&) = delete;
  Worker& operator=(const Worker&) = delete;

  // Thread-safe.
  void post(std::function<void()> job) {
    {
      const std::lock_guard lock(m_mutex);
      m_jobs.push_back(std::move(job));
    }
    m_wake.notify_one();
  }
  // Jobs that have not begun. Thread-safe.
  std::size_t waiting() const {
    const std::lock_guard lock(m_mutex);
    return m_jobs.size();
  }

 private:
  void run() {
    std::unique_lock lock(m_mutex);
    while (true) {
      m_wake.wait(lock, [this] { return m_stopping || !m_jobs.empty(); });
      if (m_stopping) return;
      const auto job = std::move(m_jobs.front());
      m_jobs.pop_front();
      lock.unlock();
      job();
      lock.lock();
    }
  }

  mutable std::mutex m_mutex;
  std::condition_variable m_wake;
  std::deque<std::function<void()>> m_jobs;
  bool m_stopping = false;
  std::thread m_thread;  // last: it uses all of the above
};

}  // namespace lumsar::host

#endif
