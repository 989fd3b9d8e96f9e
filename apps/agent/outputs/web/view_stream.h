// ViewStream: the way of one camera's pictures to those who watch it on the page. Each watcher gets
// the newest picture as soon as it can take one; pictures that nobody was ready for are dropped.
// Shared by the camera's sink and the connections' threads. Thread-safe.
#ifndef LUMSAR_AGENT_OUTPUTS_WEB_VIEW_STREAM_H
#define LUMSAR_AGENT_OUTPUTS_WEB_VIEW_STREAM_H

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>

#include "outputs/sink.h"

namespace lumsar::agent {

class ViewStream {
 public:
  explicit ViewStream(std::function<void()> changed) : m_changed(std::move(changed)) {}

  bool wanted() const;
  void show(FramePtr frame);
  void close();
  bool closed() const;
  SinkReport report() const;

  // One who watches, as long as this object lives.
  class Watcher {
   public:
    explicit Watcher(std::shared_ptr<ViewStream> stream);
    Watcher(const Watcher&) = delete;
    Watcher& operator=(const Watcher&) = delete;
    ~Watcher();
    // The next picture; null if none came in time or the camera is gone.
    FramePtr next(std::chrono::milliseconds timeout);

   private:
    std::shared_ptr<ViewStream> m_stream;
    std::uint64_t m_seen;
  };

 private:
  void count(int watchers);

  mutable std::mutex m_mutex;
  std::condition_variable m_news;
  std::function<void()> m_changed;  // empty once closed: then its owner may be gone
  int m_watchers = 0;
  FramePtr m_newest;
  std::uint64_t m_number = 0;  // of the newest
  bool m_newestTaken = true;
  SinkReport m_report;
};

}  // namespace lumsar::agent

#endif
