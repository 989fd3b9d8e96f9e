#include "capture/encoder.h"

#include <algorithm>
#include <array>
#include <stdexcept>
#include <string>

#include "base/text/format.h"
#include "lumsar/camera_data.h"

namespace lumsar::service {
namespace {

struct H264Encoder {
  const char* factory;
  const char* settings;
};

// Tuned for low latency: no frame waits for a later one. A VM gets two key frames a second at most,
// however many it asks for.
constexpr std::array<H264Encoder, 2> kH264Encoders = {
    {{"x264enc",
      "tune=zerolatency speed-preset=superfast key-int-max=60 byte-stream=true "
      "min-force-key-unit-interval=500000000"},
     {"openh264enc", "complexity=low gop-size=60 min-force-key-unit-interval=500000000"}}};

// Bits per second for a quality from 0 to 100: 50 gives a tenth of a bit for each pixel.
unsigned int bitRate(const CapturePlan& plan) {
  const double frames =
      plan.frameInterval() > 0 ? 1e6 / static_cast<double>(plan.frameInterval()) : 30.0;
  const double pixels = static_cast<double>(plan.width) * plan.height * frames;
  return static_cast<unsigned int>(std::max(100e3, pixels * plan.quality * 0.002));
}

GstElement* makeBin(const H264Encoder& encoder, unsigned int bitRate) {
  const bool kilobits = std::string(encoder.factory) == "x264enc";
  const std::string description = base::text(
      "{} {} bitrate={} ! capsfilter "
      "caps=\"video/x-h264,stream-format=(string)byte-stream,alignment=(string)au\"",
      encoder.factory, encoder.settings, bitRate / (kilobits ? 1000 : 1));
  return gst_parse_bin_from_description_full(description.c_str(), TRUE, nullptr,
                                             GST_PARSE_FLAG_FATAL_ERRORS, nullptr);
}

// The first that is installed and accepts its settings, which differ between versions.
const H264Encoder* findH264Encoder() {
  static const H264Encoder* const best = []() -> const H264Encoder* {
    const auto* found = std::ranges::find_if(kH264Encoders, [](const H264Encoder& encoder) {
      return GstPtr<GstElement>(makeBin(encoder, 1'000'000)) != nullptr;
    });
    return found == kH264Encoders.end() ? nullptr : found;
  }();
  return best;
}

GstElement* makeH264Encoder(const CapturePlan& plan) {
  const H264Encoder* encoder = findH264Encoder();
  if (encoder == nullptr) throw std::runtime_error("no H.264 encoder is installed");
  GstElement* bin = makeBin(*encoder, bitRate(plan));
  if (bin == nullptr) {
    throw std::runtime_error(
        base::text("GStreamer cannot create its H.264 encoder {}", encoder->factory));
  }
  return bin;
}

}  // namespace

bool h264Available() {
  return findH264Encoder() != nullptr;
}

GstElement* makeEncoder(const CapturePlan& plan) {
  GstElement* encoder = plan.encoding == kEncodingH264
                            ? makeH264Encoder(plan)
                            : gst_element_factory_make("jpegenc", nullptr);
  if (encoder == nullptr) {
    throw std::runtime_error(
        "GStreamer's JPEG encoder is missing; install gstreamer1.0-plugins-good");
  }
  if (plan.encoding == kEncodingMjpg) setEncoderQuality(encoder, plan);
  return encoder;
}

bool setEncoderQuality(GstElement* encoder, const CapturePlan& plan) {
  if (plan.encoding != kEncodingMjpg) return false;
  g_object_set(encoder, "quality", std::clamp(plan.quality, 0, 100), nullptr);
  return true;
}

}  // namespace lumsar::service
