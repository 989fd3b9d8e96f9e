// Continuity: which frames can be decoded. A JPEG always can; H.264 can from a key frame on, as
// long as no frame is missing.
#pragma once

#include <cstdint>
#include <optional>

#include "frames/frame.h"

namespace lumsar::agent {

class Continuity {
 public:
  bool isDecodable(const CameraFrame& frame) const {
    return frame.encoding != kEncodingH264 || (frame.flags & kFrameIsKey) != 0 ||
           m_next == frame.sequence;
  }
  void passed(const CameraFrame& frame) { m_next = frame.sequence + 1; }
  // Frames were lost, or a consumer is new.
  void restart() { m_next.reset(); }

 private:
  std::optional<std::uint32_t> m_next;  // in the numbering of frames
};

}  // namespace lumsar::agent
