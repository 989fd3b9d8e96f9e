// ViewStream: one camera's frames on their way to the viewers of the page. Each viewer gets the
// newest frame as soon as it is ready for one; frames for which no viewer was ready are dropped.
// Shared by the camera's sink and the HTTP connections' threads. Thread-safe.
#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include "outputs/sink.h"

namespace lumsar::agent {

// What a viewer waits for: a new frame of any of its streams, or the end of one.
class Bell {
 public:
  void ring();
  // At once when it has been rung since the last time.
  void wait(std::chrono::milliseconds timeout);

 private:
  std::mutex m_mutex;
  std::condition_variable m_wakeUp;
  bool m_rung = false;
};

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
    // `bell` is rung for it.
    Reader(std::shared_ptr<ViewStream> stream, Bell& bell);
    Reader(const Reader&) = delete;
    Reader& operator=(const Reader&) = delete;
    ~Reader();
    // A frame newer than the last one, or null.
    FramePtr take();
    // The same, when it comes in time and the camera is not removed before.
    FramePtr next(std::chrono::milliseconds timeout);
    const ViewStream& stream() const { return *m_stream; }

   private:
    std::shared_ptr<ViewStream> m_stream;
    Bell& m_bell;
    FramePtr m_last;
  };

 private:
  void addReader(Bell& bell);
  void removeReader(Bell& bell);

  mutable std::mutex m_mutex;
  const std::function<void()> m_changed;  // not once closed: its owner may have been destroyed
  bool m_closed = false;
  std::vector<Bell*> m_bells;  // of each reader
  FramePtr m_newest;           // null without a reader
  bool m_newestDelivered = true;
  SinkReport m_report;
};

}  // namespace lumsar::agent
