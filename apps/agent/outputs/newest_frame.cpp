#include "outputs/newest_frame.h"

#include <system_error>
#include <utility>

#include "base/text/format.h"

namespace lumsar::agent {

void NewestFrame::put(FramePtr frame) {
  {
    const std::lock_guard lock(m_mutex);
    if (m_raw) return m_raw->push(std::move(frame));
    m_cameraFormat = frame->format;
  }
  replace(std::move(frame));
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
  std::unique_ptr<RawFrames> raw;
  std::string problem;
  try {
    if (format) raw = std::make_unique<RawFrames>(*format, static_cast<RawFramesOwner&>(*this));
  } catch (const std::system_error& error) {
    problem = base::text("its decoder cannot be started: {}", error.what());
  }
  {
    const std::lock_guard lock(m_mutex);
    std::swap(m_raw, raw);
    m_problem = problem;
  }
  // Its end is waited for without the lock, which its thread takes.
  const std::uint64_t dropped = raw ? raw->stop() : 0;
  raw.reset();
  clear();
  const std::lock_guard lock(m_mutex);
  m_dropped += dropped;
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
