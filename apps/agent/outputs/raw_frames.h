// RawFrames: decodes a camera's frames for a consumer that wants raw ones, one after another on a
// thread of its own. push() and needsKeyFrame() are thread-safe.
#pragma once

#include <atomic>
#include <memory>
#include <string>

#include "frames/continuity.h"
#include "frames/frame_worker.h"
#include "outputs/decoder.h"

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
  ~RawFrames();
  RawFrames(const RawFrames&) = delete;
  RawFrames& operator=(const RawFrames&) = delete;

  const RawFormat& format() const { return m_decoder.format(); }
  void push(FramePtr frame) { m_worker->push(std::move(frame)); }
  // Nothing can be decoded before the next key frame.
  bool needsKeyFrame() const { return m_needsKey; }
  std::uint64_t dropped() const { return m_worker->dropped(); }
  // Leaves what is queued and waits for the end of the thread. How many frames were dropped in all.
  std::uint64_t stop();

 private:
  bool work(const Frame& frame);
  bool drop(const Frame& frame, const std::string& why);

  RawFramesOwner& m_owner;
  Decoder m_decoder;
  Continuity m_continuity;
  std::atomic<bool> m_needsKey{false};
  std::atomic<bool> m_stopping{false};
  std::unique_ptr<FrameWorker> m_worker;  // last, so that everything else exists when it begins
};

}  // namespace lumsar::agent
