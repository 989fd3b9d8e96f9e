// Whether a camera's frame is sent as the camera made it, or decoded and encoded. Decided for each
// frame, as a camera may change what it delivers at any time.
#pragma once

#include <string>

#include "formats/capture_plan.h"
#include "formats/jpeg_header.h"

namespace lumsar::service {

// An estimate is a few points off, and encoding a frame again costs its sharpness.
inline constexpr int kQualityTolerance = 5;

struct Treatment {
  enum class Kind {
    NoFrameYet,
    PassedThrough,
    NoJpeg,  // these are encoded
    OtherEncoding,
    OtherSize,
    LowerQuality,
    FrameIsUnusual,
    FrameHasOtherSize,
  };

  Kind kind = Kind::NoFrameYet;
  JpegHeader frame;  // the latest of an MJPG camera

  bool passes() const { return kind == Kind::PassedThrough; }
  bool isDamaged() const {
    return *frame.fault != '\0' && frame.state == JpegHeader::State::Damaged;
  }
};

Treatment treatmentOf(base::Bytes frame, const CapturePlan& plan);

// For people: "passed through", or "encoded: " and the reason.
std::string describe(const Treatment& treatment, const CapturePlan& plan);

}  // namespace lumsar::service
