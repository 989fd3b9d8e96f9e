#include "sources/file_probe.h"

#include <gst/pbutils/pbutils.h>

#include <algorithm>
#include <optional>

#include "base/system/spare_resources.h"
#include "base/text/format.h"
#include "capture/capture_pipeline.h"
#include "formats/capture_plan.h"
#include "sources/missing_codec.h"

namespace lumsar::service {
namespace {

constexpr GstClockTime kProbeTimeout = 3 * GST_SECOND;
constexpr FrameSize kMaxSize{1920, 1080};  // as a webcam's; larger frames only cost time
constexpr int kStillRate = 15;
constexpr const char* kJpeg = "image/jpeg";
constexpr double kMaxRate = 60;

struct ProbeRelease {
  void operator()(gpointer object) const { g_object_unref(object); }
};

std::string uriOf(const std::string& path) {
  return takeText(gst_filename_to_uri(path.c_str(), nullptr));
}

bool hasJpegFrames(GstDiscovererVideoInfo* video) {
  const GstPtr<GstCaps> caps(
      gst_discoverer_stream_info_get_caps(GST_DISCOVERER_STREAM_INFO(video)));
  return caps && gst_structure_has_name(gst_caps_get_structure(caps.get(), 0), kJpeg) != FALSE &&
         gst_discoverer_video_info_get_par_num(video) ==
             gst_discoverer_video_info_get_par_denom(video);
}

FileProbe describe(GstDiscovererVideoInfo* video) {
  FileProbe probe;
  probe.still = gst_discoverer_video_info_is_image(video) != FALSE;
  const FrameSize size{static_cast<int>(gst_discoverer_video_info_get_width(video)),
                       static_cast<int>(gst_discoverer_video_info_get_height(video))};
  if (size.width <= 0 || size.height <= 0) return {"its frames have no size", false, {}};
  const FrameSize sent = scaledInto(size, kMaxSize);
  probe.format.width = sent.width;
  probe.format.height = sent.height;
  probe.format.rateNumerator = static_cast<int>(gst_discoverer_video_info_get_framerate_num(video));
  probe.format.rateDenominator =
      std::max(1, static_cast<int>(gst_discoverer_video_info_get_framerate_denom(video)));
  const double rate = probe.format.rate();
  const bool keepsRate = !probe.still && rate >= 1 && rate <= kMaxRate;
  if (!keepsRate) {
    probe.format.rateNumerator = kStillRate;
    probe.format.rateDenominator = 1;
  }
  const bool asTheyAre = keepsRate && sent.width == size.width && hasJpegFrames(video);
  probe.format.encoding = asTheyAre ? "MJPG" : "I420";
  return probe;
}

std::string missingIn(GstDiscovererInfo* info) {
  std::vector<std::string> details;
  const gchar** detail = gst_discoverer_info_get_missing_elements_installer_details(info);
  for (; detail != nullptr && *detail != nullptr; ++detail) details.emplace_back(*detail);
  return missingCodec(details);
}

// Nothing when it took too long.
std::optional<FileProbe> probeOnce(const std::string& path) {
  if (!base::hasSpareDescriptors(kPipelineDescriptors)) {
    return FileProbe{base::tooManyOpenFiles(), false, {}};
  }
  if (!base::hasSpareThreads(kPipelineThreads)) return FileProbe{base::kTooManyThreads, false, {}};
  GError* error = nullptr;
  const std::unique_ptr<GstDiscoverer, ProbeRelease> discoverer(
      gst_discoverer_new(kProbeTimeout, &error));
  GstPtr<GError> owned(error);
  if (!discoverer) {
    return FileProbe{base::text("GStreamer cannot examine files: {}", error->message), false, {}};
  }
  error = nullptr;
  const std::unique_ptr<GstDiscovererInfo, ProbeRelease> info(
      gst_discoverer_discover_uri(discoverer.get(), uriOf(path).c_str(), &error));
  owned.reset(error);
  if (info && gst_discoverer_info_get_result(info.get()) == GST_DISCOVERER_TIMEOUT) return {};
  const bool lacksElements =
      info && gst_discoverer_info_get_result(info.get()) == GST_DISCOVERER_MISSING_PLUGINS;
  const std::string missing = lacksElements ? missingIn(info.get()) : "";
  if (!missing.empty()) return FileProbe{missing, false, {}};
  if (error != nullptr && !lacksElements) return FileProbe{error->message, false, {}};
  GList* streams = gst_discoverer_info_get_video_streams(info.get());
  FileProbe probe = {"it has no frames", false, {}};
  if (streams != nullptr) probe = describe(static_cast<GstDiscovererVideoInfo*>(streams->data));
  gst_discoverer_stream_info_list_free(streams);
  return probe;
}

// Scaled before it is repeated: once, not for each frame.
std::string decodedFrames(const FileProbe& probe) {
  const CameraFormat& format = probe.format;
  const std::string rate =
      base::text("video/x-raw,framerate={}/{}", format.rateNumerator, format.rateDenominator);
  const std::string repeated =
      probe.still ? base::text("imagefreeze is-live=true ! {} ! identity silent=true", rate)
                  : base::text("videorate ! {} ! clocksync", rate);
  return base::text(
      "uridecodebin name=decode caps=video/x-raw expose-all-streams=false ! videoconvertscale ! "
      "video/x-raw,format=I420,pixel-aspect-ratio=1/1,width={},height={} ! {}",
      format.width, format.height, repeated);
}

std::string jpegFrames(const CameraFormat& format) {
  return base::text(
      "uridecodebin name=decode caps={0} expose-all-streams=false ! videorate ! "
      "{0},framerate={1}/{2} ! clocksync",
      kJpeg, format.rateNumerator, format.rateDenominator);
}

}  // namespace

FileProbe probeFile(const std::string& path) {
  for (int i = 0; i < 2; ++i) {  // a system that is busy for a moment is not the file's fault
    if (const auto probe = probeOnce(path)) return *probe;
  }
  return {base::text("it could not be read within {} s", kProbeTimeout / GST_SECOND), false, {}};
}

GstElement* makeFileSource(const std::string& path, const FileProbe& probe) {
  GstElement* bin = makeSourceBin(probe.format.encoding == "MJPG" ? jpegFrames(probe.format)
                                                                  : decodedFrames(probe));
  if (bin == nullptr) return nullptr;
  const GstPtr<GstElement> decode(gst_bin_get_by_name(GST_BIN(bin), "decode"));
  g_object_set(decode.get(), "uri", uriOf(path).c_str(), nullptr);
  return bin;
}

}  // namespace lumsar::service
