// Looking into files: see file_probe.h. Probing runs on FileCameras' thread, sources are made on
// the main thread.
#include "sources/file_probe.h"

#include <gst/pbutils/pbutils.h>

#include <algorithm>
#include <optional>

#include "app/log.h"
#include "sources/source_bin.h"

namespace lumsar::service {
namespace {

constexpr GstClockTime kProbeLimit = 3 * GST_SECOND;
constexpr int kMaxWidth = 1920;  // as a webcam would; larger files only cost time
constexpr int kMaxHeight = 1080;
constexpr int kStillRate = 15;
constexpr double kMaxRate = 60;

struct ProbeRelease {
  void operator()(gpointer object) const { g_object_unref(object); }
};

std::string uriOf(const std::string& path) {
  return takeText(gst_filename_to_uri(path.c_str(), nullptr));
}

void fit(CameraFormat& format) {
  const double scale = std::min({1.0, static_cast<double>(kMaxWidth) / format.width,
                                 static_cast<double>(kMaxHeight) / format.height});
  if (scale == 1.0) return;
  format.width = std::max(2, static_cast<int>(format.width * scale) & ~1);
  format.height = std::max(2, static_cast<int>(format.height * scale) & ~1);
}

FileProbe describe(GstDiscovererVideoInfo* video) {
  FileProbe probe;
  probe.still = gst_discoverer_video_info_is_image(video) != FALSE;
  probe.format.encoding = "I420";
  probe.format.width = static_cast<int>(gst_discoverer_video_info_get_width(video));
  probe.format.height = static_cast<int>(gst_discoverer_video_info_get_height(video));
  probe.format.rateNumerator = static_cast<int>(gst_discoverer_video_info_get_framerate_num(video));
  probe.format.rateDenominator =
      std::max(1, static_cast<int>(gst_discoverer_video_info_get_framerate_denom(video)));
  const double rate = probe.format.rate();
  if (probe.still || rate < 1 || rate > kMaxRate) {
    probe.format.rateNumerator = kStillRate;
    probe.format.rateDenominator = 1;
  }
  if (probe.format.width <= 0 || probe.format.height <= 0) {
    probe.error = "its pictures have no size";
  } else {
    fit(probe.format);
  }
  return probe;
}

// Nothing when it took too long.
std::optional<FileProbe> probeOnce(const std::string& path) {
  GError* error = nullptr;
  const std::unique_ptr<GstDiscoverer, ProbeRelease> discoverer(
      gst_discoverer_new(kProbeLimit, &error));
  GstPtr<GError> owned(error);
  if (!discoverer) {
    return FileProbe{joined("GStreamer cannot look into files: ", error->message), false, {}};
  }
  error = nullptr;
  const std::unique_ptr<GstDiscovererInfo, ProbeRelease> info(
      gst_discoverer_discover_uri(discoverer.get(), uriOf(path).c_str(), &error));
  owned.reset(error);
  if (info && gst_discoverer_info_get_result(info.get()) == GST_DISCOVERER_TIMEOUT) return {};
  if (error != nullptr) return FileProbe{error->message, false, {}};
  GList* streams = gst_discoverer_info_get_video_streams(info.get());
  FileProbe probe = {"there is no picture in it", false, {}};
  if (streams != nullptr) probe = describe(static_cast<GstDiscovererVideoInfo*>(streams->data));
  gst_discoverer_stream_info_list_free(streams);
  return probe;
}

}  // namespace

FileProbe probeFile(const std::string& path) {
  for (int i = 0; i < 2; ++i) {  // a system that is busy for a moment is no fault of the file
    if (const auto probe = probeOnce(path)) return *probe;
  }
  return {joined("it could not be read within ", kProbeLimit / GST_SECOND, " s"), false, {}};
}

GstElement* makeFileSource(const std::string& path, const FileProbe& probe) {
  const CameraFormat& format = probe.format;
  const std::string rate =
      joined("video/x-raw,framerate=", format.rateNumerator, "/", format.rateDenominator);
  // Scaled before it is repeated: once, not for each frame.
  const std::string description =
      joined("uridecodebin name=decode caps=video/x-raw expose-all-streams=false ! videoconvert ! ",
             "videoscale ! video/x-raw,format=I420,pixel-aspect-ratio=1/1,width=", format.width,
             ",height=", format.height, " ! ",
             probe.still ? joined("imagefreeze is-live=true ! ", rate, " ! identity silent=true")
                         : joined("videorate ! ", rate, " ! clocksync"));
  GstElement* bin = makeSourceBin(description);
  if (bin == nullptr) return nullptr;
  const GstPtr<GstElement> decode(gst_bin_get_by_name(GST_BIN(bin), "decode"));
  g_object_set(decode.get(), "uri", uriOf(path).c_str(), nullptr);
  return bin;
}

}  // namespace lumsar::service
