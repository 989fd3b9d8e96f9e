// NewestFrame: what is between the channel thread, which puts a camera's frames here, and the
// thread of a sink, which takes the newest one. Where its consumer wants raw frames, they go by way
// of a decoder. Thread-safe.
#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "outputs/raw_frames.h"

namespace lumsar::agent {

class NewestFrame : private RawFramesOwner {
 public:
  // `arrived` is called on other threads when there is something to take.
  explicit NewestFrame(std::function<void()> arrived) : m_arrived(std::move(arrived)) {}

  void put(FramePtr frame);
  FramePtr take();
  // Drops what has not been taken.
  void clear();

  // From now on frames are raw ones of this format, or the camera's own. Not to be called by two
  // threads at once.
  void decodeTo(const std::optional<RawFormat>& format);
  bool needsKeyFrame() const;
  // Of the raw frames; nothing where frames are the camera's own.
  std::optional<FrameSize> rawSize() const;

  // Of the latest frame that was not decoded; nothing before the first.
  std::optional<CameraFrame> cameraFormat() const;
  // Why a frame could not be decoded; empty if none failed since the last call.
  std::string takeProblem();
  std::uint64_t dropped() const;

 private:
  void decoded(FramePtr raw) override { replace(std::move(raw)); }
  void notDecoded(const std::string& why) override;
  void replace(FramePtr frame);

  const std::function<void()> m_arrived;
  mutable std::mutex m_mutex;  // for all of these
  FramePtr m_newest;
  std::optional<CameraFrame> m_cameraFormat;
  std::string m_problem;
  std::uint64_t m_dropped = 0;
  std::unique_ptr<RawFrames> m_raw;  // last, as its thread uses the others
};

}  // namespace lumsar::agent
