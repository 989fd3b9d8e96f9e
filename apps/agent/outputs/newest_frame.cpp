#include "outputs/newest_frame.h"

#include <utility>

namespace lumsar::agent {

void NewestFrame::put(FramePtr frame) {
  std::shared_ptr<RawFrames> raw;
  {
    const std::lock_guard lock(m_mutex);
    raw = m_raw;
    if (!raw) m_cameraFormat = frame->format;
  }
  raw ? raw->push(std::move(frame)) : replace(std::move(frame));
}

void NewestFrame::replace(FramePtr frame) {
  {
    const std::lock_guard lock(m_mutex);
    if (std::exchange(m_newest, std::move(frame)) != nullptr) ++m_dropped;
  }
  m_arrived();
}

FramePtr NewestFrame::take() {
  const std::lock_guard lock(m_mutex);
  return std::exchange(m_newest, nullptr);
}

void NewestFrame::clear() {
  const std::lock_guard lock(m_mutex);
  if (std::exchange(m_newest, nullptr) != nullptr) ++m_dropped;
}

void NewestFrame::decodeTo(const std::optional<RawFormat>& format) {
  auto raw =
      format ? std::make_shared<RawFrames>(*format, static_cast<RawFramesOwner&>(*this)) : nullptr;
  {
    const std::lock_guard lock(m_mutex);
    std::swap(m_raw, raw);
    if (raw) m_dropped += raw->dropped();
    m_problem.clear();
  }
  raw.reset();  // without the lock, which its thread takes
  clear();
}

bool NewestFrame::needsKeyFrame() const {
  const std::lock_guard lock(m_mutex);
  return m_raw && m_raw->needsKeyFrame();
}

std::optional<FrameSize> NewestFrame::rawSize() const {
  const std::lock_guard lock(m_mutex);
  return m_raw ? std::optional(m_raw->format().size) : std::nullopt;
}

void NewestFrame::notDecoded(const std::string& why) {
  {
    const std::lock_guard lock(m_mutex);
    if (!why.empty()) m_problem = why;
  }
  m_arrived();
}

std::optional<CameraFrame> NewestFrame::cameraFormat() const {
  const std::lock_guard lock(m_mutex);
  return m_cameraFormat;
}

std::string NewestFrame::takeProblem() {
  const std::lock_guard lock(m_mutex);
  return std::exchange(m_problem, {});
}

std::uint64_t NewestFrame::dropped() const {
  const std::lock_guard lock(m_mutex);
  return m_dropped + (m_raw ? m_raw->dropped() : 0);
}

}  // namespace lumsar::agent
