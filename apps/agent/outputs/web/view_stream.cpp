// Pictures for watchers. Called by the channel's thread and the connections' threads.
// Thread-safe by one mutex; nothing slow happens under it.
#include "outputs/web/view_stream.h"

#include <utility>

namespace lumsar::agent {

bool ViewStream::wanted() const {
  const std::lock_guard lock(m_mutex);
  return m_watchers > 0;
}

void ViewStream::show(FramePtr frame) {
  {
    const std::lock_guard lock(m_mutex);
    if (!m_newestTaken) ++m_report.dropped;
    m_newest = std::move(frame);
    m_newestTaken = false;
    ++m_number;
  }
  m_news.notify_all();
}

void ViewStream::close() {
  {
    const std::lock_guard lock(m_mutex);
    m_changed = nullptr;
  }
  m_news.notify_all();
}

bool ViewStream::closed() const {
  const std::lock_guard lock(m_mutex);
  return !m_changed;
}

SinkReport ViewStream::report() const {
  const std::lock_guard lock(m_mutex);
  return m_report;
}

void ViewStream::count(int watchers) {
  const std::lock_guard lock(m_mutex);
  m_watchers += watchers;
  if (m_watchers == 0) {
    m_newest = nullptr;  // the next watcher must not begin with an old picture
    m_newestTaken = true;
  }
  if (m_changed) m_changed();
}

ViewStream::Watcher::Watcher(std::shared_ptr<ViewStream> stream) : m_stream(std::move(stream)) {
  m_stream->count(1);
  const std::lock_guard lock(m_stream->m_mutex);
  m_seen = m_stream->m_newest ? m_stream->m_number - 1 : m_stream->m_number;
}

ViewStream::Watcher::~Watcher() {
  m_stream->count(-1);
}

FramePtr ViewStream::Watcher::next(std::chrono::milliseconds timeout) {
  ViewStream& stream = *m_stream;
  std::unique_lock lock(stream.m_mutex);
  stream.m_news.wait_for(lock, timeout,
                         [&] { return stream.m_number != m_seen || !stream.m_changed; });
  if (stream.m_number == m_seen || !stream.m_newest) return nullptr;
  m_seen = stream.m_number;
  if (!std::exchange(stream.m_newestTaken, true)) ++stream.m_report.taken;
  return stream.m_newest;
}

}  // namespace lumsar::agent
