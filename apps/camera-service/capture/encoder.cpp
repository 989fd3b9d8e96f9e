#include "capture/encoder.h"

#include <algorithm>
#include <array>
#include <stdexcept>
#include <string>

#include "base/text/format.h"
#include "capture/even_stamps.h"
#include "capture/key_frame_limit.h"
#include "formats/line_plan.h"
#include "lumsar/camera_data.h"

namespace lumsar::service {
namespace {

struct H264Encoder {
  const char* factory;
  const char* settings;  // with a place for the bit rate
  unsigned int bitRateUnit = 1;
  bool needsDevice = false;
  const char* rateControl = nullptr;  // of a driver, where the bit rate is no property
  void (*prepare)(GstElement* encoder, double frameRate) = nullptr;
  // How long a key frame may take at the bit rate.
  void (*limitKeyFrames)(GstElement* encoder, GstClockTime time) = nullptr;
};

constexpr GstClockTime kBufferTime = 600 * GST_MSECOND;
// Of a line on which everything waits for it.
constexpr GstClockTime kThinBufferTime = 250 * GST_MSECOND;

void limitBuffer(GstElement* x264, GstClockTime time) {
  g_object_set(x264, "vbv-buf-capacity", static_cast<guint>(time / GST_MSECOND), nullptr);
}

// Devices first. Tuned for low latency: no frame waits for a later one.
constexpr std::array<H264Encoder, 5> kH264Encoders = {
    {{"vah264enc", "rate-control=cbr b-frames=0 key-int-max=60 bitrate={}", 1000, true},
     {"vaapih264enc", "rate-control=cbr max-bframes=0 keyframe-period=60 bitrate={}", 1000, true},
     {"v4l2h264enc",
      "extra-controls=controls,repeat_sequence_header=1,video_b_frames=0,video_gop_size=60,"
      "video_bitrate={}",
      1, true, "video_bitrate"},
     // Unless it may leave frames out, it exceeds a low bit rate many times over.
     {"openh264enc",
      "complexity=low rate-control=bitrate enable-frame-skip=true scene-change-detection=false "
      "gop-size=60 bitrate={}",
      1, false, nullptr, stampEvenly, limitKeyFrames},
     {"x264enc",
      "tune=zerolatency speed-preset=superfast key-int-max=60 byte-stream=true "
      "option-string=scenecut=0 bitrate={}",
      1000, false, nullptr, nullptr, limitBuffer}}};

constexpr const char* kName = "h264";

// Encoders expect each frame of the source; one in so many comes.
double framesPerEncoded(const CapturePlan& plan) {
  const double rate = plan.source.rate();
  if (plan.interval <= 0 || rate <= 0) return 1;
  return std::max(1.0, static_cast<double>(plan.interval) * rate / 1e6);
}

// Each that comes has the part of those that are left out, too.
unsigned int bitRate(const CapturePlan& plan) {
  const double rate = plan.bitRate > 0 ? plan.bitRate : policyBitRate(plan);
  return static_cast<unsigned int>(rate * framesPerEncoded(plan));
}

// In the encoder's time; at least that of a frame, as no time would mean no limit.
GstClockTime keyFrameTime(const CapturePlan& plan) {
  const auto time = static_cast<double>(plan.isThinned ? kThinBufferTime : kBufferTime);
  const double rate = plan.source.rate();
  const double frame = rate > 0 ? GST_SECOND / rate : 0;
  return static_cast<GstClockTime>(std::max(time / framesPerEncoded(plan), frame));
}

GstElement* makeBin(const H264Encoder& encoder, const CapturePlan& plan) {
  const std::string settings =
      fmt::format(fmt::runtime(encoder.settings), bitRate(plan) / encoder.bitRateUnit);
  const std::string description = base::text(
      "{} name={} {} ! capsfilter "
      "caps=\"video/x-h264,stream-format=(string)byte-stream,alignment=(string)au\"",
      encoder.factory, kName, settings);
  GstElement* bin = gst_parse_bin_from_description_full(description.c_str(), TRUE, nullptr,
                                                        GST_PARSE_FLAG_FATAL_ERRORS, nullptr);
  if (bin == nullptr) return nullptr;
  const GstPtr<GstElement> element(gst_bin_get_by_name(GST_BIN(bin), kName));
  if (encoder.prepare != nullptr) encoder.prepare(element.get(), plan.source.rate());
  if (encoder.limitKeyFrames != nullptr) encoder.limitKeyFrames(element.get(), keyFrameTime(plan));
  return bin;
}

// That a device's driver can be loaded says little.
bool encodesAFrame(GstElement* encoder) {
  constexpr GstClockTime kTimeout = 3 * GST_SECOND;
  const GstPtr<GstElement> pipeline(gst_parse_launch(
      "videotestsrc num-buffers=1 name=source ! video/x-raw,format=I420,width=640,height=480 ! "
      "videoconvert name=last fakesink name=sink",
      nullptr));
  const GstPtr<GstElement> held(GST_ELEMENT(gst_object_ref_sink(encoder)));
  if (!pipeline) return false;
  GstBin* bin = GST_BIN(pipeline.get());
  const GstPtr<GstElement> last(gst_bin_get_by_name(bin, "last"));
  const GstPtr<GstElement> sink(gst_bin_get_by_name(bin, "sink"));
  gst_bin_add(bin, encoder);
  if (gst_element_link_many(last.get(), encoder, sink.get(), nullptr) == FALSE) return false;
  gst_element_set_state(pipeline.get(), GST_STATE_PLAYING);
  const GstPtr<GstBus> bus(gst_element_get_bus(pipeline.get()));
  const GstPtr<GstMessage> end(gst_bus_timed_pop_filtered(
      bus.get(), kTimeout, static_cast<GstMessageType>(GST_MESSAGE_EOS | GST_MESSAGE_ERROR)));
  gst_element_set_state(pipeline.get(), GST_STATE_NULL);
  return end && GST_MESSAGE_TYPE(end.get()) == GST_MESSAGE_EOS;
}

bool isUsable(const H264Encoder& encoder) {
  CapturePlan plan;
  plan.bitRate = 1e6;
  GstElement* bin = makeBin(encoder, plan);
  if (bin == nullptr) return false;
  if (encoder.needsDevice) return encodesAFrame(bin);
  const GstPtr<GstElement> unused(bin);
  return true;
}

// The first that is installed and accepts its settings, which differ between versions.
const H264Encoder* findH264Encoder() {
  static const H264Encoder* const best = []() -> const H264Encoder* {
    const auto* found = std::ranges::find_if(kH264Encoders, isUsable);
    return found == kH264Encoders.end() ? nullptr : found;
  }();
  return best;
}

GstElement* makeBestH264Encoder(const CapturePlan& plan) {
  const H264Encoder* encoder = findH264Encoder();
  if (encoder == nullptr) throw std::runtime_error("no H.264 encoder is installed");
  GstElement* bin = makeBin(*encoder, plan);
  if (bin == nullptr) {
    throw std::runtime_error(
        base::text("GStreamer cannot create its H.264 encoder {}", encoder->factory));
  }
  return bin;
}

const H264Encoder* kindOf(GstElement* encoder) {
  const char* const name = GST_OBJECT_NAME(gst_element_get_factory(encoder));
  const auto* kind =
      std::ranges::find(kH264Encoders, std::string_view(name), &H264Encoder::factory);
  return kind == kH264Encoders.end() ? nullptr : kind;
}

}  // namespace

bool h264Available() {
  return findH264Encoder() != nullptr;
}

std::vector<std::string> h264Encoders() {
  std::vector<std::string> names;
  for (const H264Encoder& encoder : kH264Encoders) {
    if (isUsable(encoder)) names.emplace_back(encoder.factory);
  }
  return names;
}

GstElement* makeH264Encoder(const std::string& name, const CapturePlan& plan) {
  const auto* encoder = std::ranges::find(kH264Encoders, name, &H264Encoder::factory);
  return encoder == kH264Encoders.end() ? nullptr : makeBin(*encoder, plan);
}

GstElement* makeEncoder(const CapturePlan& plan) {
  GstElement* encoder = plan.encoding == kEncodingH264
                            ? makeBestH264Encoder(plan)
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

void setEncoderRate(GstElement* encoder, const CapturePlan& plan) {
  if (plan.encoding != kEncodingH264) return;
  const GstPtr<GstElement> element(gst_bin_get_by_name(GST_BIN(encoder), kName));
  const H264Encoder* kind = kindOf(element.get());
  if (kind == nullptr) return;
  const unsigned int rate = bitRate(plan) / kind->bitRateUnit;
  if (kind->rateControl != nullptr) {
    GstStructure* controls = gst_structure_new("controls", kind->rateControl, G_TYPE_INT,
                                               static_cast<int>(rate), nullptr);
    g_object_set(element.get(), "extra-controls", controls, nullptr);
    return gst_structure_free(controls);
  }
  const GParamSpec* property =
      g_object_class_find_property(G_OBJECT_GET_CLASS(element.get()), "bitrate");
  if ((property->flags & GST_PARAM_MUTABLE_PLAYING) == 0) return;
  if (kind->limitKeyFrames != nullptr) kind->limitKeyFrames(element.get(), keyFrameTime(plan));
  g_object_set(element.get(), "bitrate", rate, nullptr);
}

}  // namespace lumsar::service
