#include "outputs/web/view_stream.h"

#include <algorithm>
#include <utility>

namespace lumsar::agent {

void Bell::ring() {
  {
    const std::lock_guard lock(m_mutex);
    m_rung = true;
  }
  m_wakeUp.notify_one();
}

void Bell::wait(std::chrono::milliseconds timeout) {
  std::unique_lock lock(m_mutex);
  m_wakeUp.wait_for(lock, timeout, [this] { return m_rung; });
  m_rung = false;
}

bool ViewStream::hasConsumer() const {
  const std::lock_guard lock(m_mutex);
  return !m_bells.empty();
}

void ViewStream::deliver(FramePtr frame) {
  const std::lock_guard lock(m_mutex);
  if (!m_newestDelivered) ++m_report.dropped;
  m_newest = std::move(frame);
  m_newestDelivered = false;
  for (Bell* bell : m_bells) bell->ring();
}

void ViewStream::close() {
  const std::lock_guard lock(m_mutex);
  m_closed = true;
  for (Bell* bell : m_bells) bell->ring();
}

bool ViewStream::closed() const {
  const std::lock_guard lock(m_mutex);
  return m_closed;
}

SinkReport ViewStream::report() const {
  const std::lock_guard lock(m_mutex);
  return m_report;
}

void ViewStream::addReader(Bell& bell) {
  const std::lock_guard lock(m_mutex);
  m_bells.push_back(&bell);
  if (!m_closed) m_changed();
}

void ViewStream::removeReader(Bell& bell) {
  const std::lock_guard lock(m_mutex);
  m_bells.erase(std::ranges::find(m_bells, &bell));
  if (m_bells.empty()) {
    m_newest = nullptr;  // the next reader must not begin with an old frame
    m_newestDelivered = true;
  }
  if (!m_closed) m_changed();
}

ViewStream::Reader::Reader(std::shared_ptr<ViewStream> stream, Bell& bell)
    : m_stream(std::move(stream)), m_bell(bell) {
  m_stream->addReader(m_bell);
}

ViewStream::Reader::~Reader() {
  m_stream->removeReader(m_bell);
}

FramePtr ViewStream::Reader::take() {
  ViewStream& stream = *m_stream;
  const std::lock_guard lock(stream.m_mutex);
  if (stream.m_newest == nullptr || stream.m_newest == m_last) return nullptr;
  m_last = stream.m_newest;
  if (!std::exchange(stream.m_newestDelivered, true)) ++stream.m_report.delivered;
  return m_last;
}

FramePtr ViewStream::Reader::next(std::chrono::milliseconds timeout) {
  const auto end = std::chrono::steady_clock::now() + timeout;
  while (true) {
    if (FramePtr frame = take()) return frame;
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
    if (left.count() <= 0 || m_stream->closed()) return nullptr;
    m_bell.wait(left);
  }
}

}  // namespace lumsar::agent
