// RawFrames: decodes a camera's frames for a consumer that wants raw ones, one after another on a
// thread of its own. push() and needsKeyFrame() are thread-safe.
#pragma once

#include <atomic>
#include <string>

#include "outputs/continuity.h"
#include "outputs/decoder.h"
#include "outputs/frame_worker.h"

namespace lumsar::agent {

// Both are called on the thread of RawFrames.
class RawFramesOwner {
 public:
  virtual ~RawFramesOwner() = default;
  virtual void decoded(FramePtr raw) = 0;
  // A reason is given unless frames before it are missing.
  virtual void notDecoded(const std::string& why) = 0;
};

class RawFrames {
 public:
  RawFrames(const RawFormat& format, RawFramesOwner& owner);
  // Leaves what is queued.
  ~RawFrames();
  RawFrames(const RawFrames&) = delete;
  RawFrames& operator=(const RawFrames&) = delete;

  const RawFormat& format() const { return m_decoder.format(); }
  void push(FramePtr frame) { m_worker.push(std::move(frame)); }
  // Nothing can be decoded before the next key frame.
  bool needsKeyFrame() const { return m_needsKey; }
  std::uint64_t dropped() const { return m_worker.dropped(); }

 private:
  bool work(const Frame& frame);
  bool drop(const Frame& frame, const std::string& why);

  RawFramesOwner& m_owner;
  Decoder m_decoder;
  Continuity m_continuity;
  std::atomic<bool> m_needsKey{false};
  FrameWorker m_worker;  // last, so that everything else exists when it begins
};

}  // namespace lumsar::agent
