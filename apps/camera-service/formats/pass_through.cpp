#include "formats/pass_through.h"

#include "base/text/format.h"
#include "lumsar/camera_data.h"

namespace lumsar::service {
namespace {

using Kind = Treatment::Kind;

Kind kindOf(const JpegHeader& frame, const CapturePlan& plan) {
  const CameraFormat& source = plan.source;
  if (plan.encoding != kEncodingMjpg) return Kind::OtherEncoding;
  if (plan.width != source.width || plan.height != source.height) return Kind::OtherSize;
  if (frame.state != JpegHeader::State::Plain) return Kind::FrameIsUnusual;
  if (frame.width != plan.width || frame.height != plan.height) return Kind::FrameHasOtherSize;
  if (frame.quality > plan.quality + kQualityTolerance) return Kind::LowerQuality;
  return Kind::PassedThrough;
}

std::string reason(const Treatment& treatment, const CapturePlan& plan) {
  const JpegHeader& frame = treatment.frame;
  const char* who = plan.isThinned ? "the VM's line" : "the policy";
  switch (treatment.kind) {
    case Kind::NoJpeg:
      return base::text("the camera delivers {}", plan.source.encoding);
    case Kind::OtherEncoding:
      return "the policy wants H264";
    case Kind::OtherSize:
      return base::text("{} wants {}x{}", who, plan.width, plan.height);
    case Kind::LowerQuality:
      return base::text("{} wants quality {}, the camera's own is about {}", who, plan.quality,
                        frame.quality);
    case Kind::FrameIsUnusual:
      return base::text("the camera's frame {}", frame.fault);
    case Kind::FrameHasOtherSize:
      return base::text("the camera's frame is {}x{} instead of {}x{}", frame.width, frame.height,
                        plan.width, plan.height);
    default:
      return "";
  }
}

}  // namespace

Treatment treatmentOf(base::Bytes frame, const CapturePlan& plan) {
  if (plan.source.encoding != "MJPG") return {Kind::NoJpeg, {}};
  const JpegHeader header = readJpegHeader(frame);
  return {kindOf(header, plan), header};
}

std::string describe(const Treatment& treatment, const CapturePlan& plan) {
  if (treatment.kind == Kind::NoFrameYet) return "no frame yet";
  if (treatment.passes()) return "passed through";
  return "encoded: " + reason(treatment, plan);
}

}  // namespace lumsar::service
