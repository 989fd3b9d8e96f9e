#include "outputs/web/view_stream.h"

#include <utility>

namespace lumsar::agent {

bool ViewStream::hasConsumer() const {
  const std::lock_guard lock(m_mutex);
  return m_readers > 0;
}

void ViewStream::deliver(FramePtr frame) {
  {
    const std::lock_guard lock(m_mutex);
    if (!m_newestDelivered) ++m_report.dropped;
    m_newest = std::move(frame);
    m_newestDelivered = false;
  }
  m_wakeUp.notify_all();
}

void ViewStream::close() {
  {
    const std::lock_guard lock(m_mutex);
    m_closed = true;
  }
  m_wakeUp.notify_all();
}

bool ViewStream::closed() const {
  const std::lock_guard lock(m_mutex);
  return m_closed;
}

SinkReport ViewStream::report() const {
  const std::lock_guard lock(m_mutex);
  return m_report;
}

void ViewStream::addReader() {
  const std::lock_guard lock(m_mutex);
  ++m_readers;
  if (!m_closed) m_changed();
}

void ViewStream::removeReader() {
  const std::lock_guard lock(m_mutex);
  if (--m_readers == 0) {
    m_newest = nullptr;  // the next reader must not begin with an old frame
    m_newestDelivered = true;
  }
  if (!m_closed) m_changed();
}

ViewStream::Reader::Reader(std::shared_ptr<ViewStream> stream) : m_stream(std::move(stream)) {
  m_stream->addReader();
}

ViewStream::Reader::~Reader() {
  m_stream->removeReader();
}

FramePtr ViewStream::Reader::next(std::chrono::milliseconds timeout) {
  ViewStream& stream = *m_stream;
  std::unique_lock lock(stream.m_mutex);
  stream.m_wakeUp.wait_for(lock, timeout,
                           [&] { return stream.m_newest != m_last || stream.m_closed; });
  if (stream.m_newest == m_last) return nullptr;
  m_last = stream.m_newest;
  if (!std::exchange(stream.m_newestDelivered, true)) ++stream.m_report.delivered;
  return m_last;
}

}  // namespace lumsar::agent
