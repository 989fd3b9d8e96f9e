// What is asked of a camera by those who look, and what is made of it: which of the camera's
// formats is taken and how large the pictures leave. Pure functions, called on the main thread.
#ifndef LUMSAR_CAMERA_SERVICE_CAPTURE_CAPTURE_PLAN_H
#define LUMSAR_CAMERA_SERVICE_CAPTURE_CAPTURE_PLAN_H

#include <cstdint>
#include <vector>

#include "capture/camera_format.h"
#include "capture/policy_rule.h"

namespace lumsar::service {

struct CaptureRequest {
  PolicyRule rule;
  std::int64_t interval = 0;  // µs between frames; 0: the camera's own rate
};

// One camera serves all who look with one picture: within every limit, and as fast as the fastest
// (for H.264, which bears no gaps, as slow as the slowest).
CaptureRequest combined(const CaptureRequest& first, const CaptureRequest& second);

struct CapturePlan {
  CameraFormat source;
  int width = 0;  // of the pictures that leave
  int height = 0;
  std::uint32_t encoding = 0;  // kEncodingMjpg or kEncodingH264
  int quality = 0;
  std::int64_t interval = 0;  // µs, as far as it is slower than the source; else 0

  // µs from frame to frame, 0 if not known.
  std::int64_t frameInterval() const;
};

CapturePlan planCapture(const std::vector<CameraFormat>& formats, const CaptureRequest& request);

}  // namespace lumsar::service

#endif
