// What consumers ask of a camera, and what is made of it: which of the camera's formats is captured
// and how large frames are sent.
#pragma once

#include <cstdint>
#include <vector>

#include "formats/camera_format.h"
#include "formats/policy_rule.h"

namespace lumsar::service {

struct CaptureRequest {
  PolicyRule rule;
  std::int64_t interval = 0;  // µs between frames; 0: the camera's own rate
  double lineRate = 0;        // bytes a second that the VM's line takes; 0: it is no limit
};

// One stream of frames serves all consumers of a camera: within every limit, and as fast as the
// fastest (for H.264, which bears no gaps, as slow as the slowest). The slowest line is the limit.
CaptureRequest combined(const CaptureRequest& first, const CaptureRequest& second);

struct CapturePlan {
  CameraFormat source;
  int width = 0;  // as sent
  int height = 0;
  std::uint32_t encoding = 0;  // kEncodingMjpg or kEncodingH264
  int quality = 0;
  std::int64_t interval = 0;  // µs, as far as it is slower than the source; else 0
  double bitRate = 0;         // of H.264, bits a second; 0: what its quality gives
  bool isThinned = false;     // less than the policy gives, for the line's sake

  // µs from frame to frame, 0 if not known.
  std::int64_t frameInterval() const;
  bool operator==(const CapturePlan&) const = default;
};

struct FrameSize {
  int width = 0;
  int height = 0;

  bool operator==(const FrameSize&) const = default;
};

// Scaled down to even sides if it is larger than `limit`.
FrameSize scaledInto(FrameSize size, FrameSize limit);

CapturePlan planCapture(const std::vector<CameraFormat>& formats, const CaptureRequest& request);

}  // namespace lumsar::service
