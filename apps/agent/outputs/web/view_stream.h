// ViewStream: one camera's frames on their way to the viewers of the page. Each viewer gets the
// newest frame as soon as it is ready for one; frames for which no viewer was ready are dropped.
// Shared by the camera's sink and the HTTP connections' threads. Thread-safe.
#pragma once

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

  bool hasConsumer() const;
  void deliver(FramePtr frame);
  void close();
  bool closed() const;
  SinkReport report() const;

  // One viewer, as long as this object lives.
  class Reader {
   public:
    explicit Reader(std::shared_ptr<ViewStream> stream);
    Reader(const Reader&) = delete;
    Reader& operator=(const Reader&) = delete;
    ~Reader();
    // A frame newer than the last one; null if none came in time or the camera was removed.
    FramePtr next(std::chrono::milliseconds timeout);

   private:
    std::shared_ptr<ViewStream> m_stream;
    FramePtr m_last;
  };

 private:
  void addReader();
  void removeReader();

  mutable std::mutex m_mutex;
  std::condition_variable m_wakeUp;
  const std::function<void()> m_changed;  // not once closed: its owner may have been destroyed
  bool m_closed = false;
  int m_readers = 0;
  FramePtr m_newest;  // null without a reader
  bool m_newestDelivered = true;
  SinkReport m_report;
};

}  // namespace lumsar::agent
