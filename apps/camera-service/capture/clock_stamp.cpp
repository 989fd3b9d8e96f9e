#include "capture/clock_stamp.h"

#include <gst/video/video.h>

#include <algorithm>
#include <array>
#include <ctime>
#include <memory>

#include "base/text/format.h"
#include "formats/gst_ptr.h"

namespace lumsar::service {
namespace {

constexpr unsigned char kBlack = 16;
constexpr unsigned char kWhite = 235;

void fill(const LumaPlane& plane, std::size_t x, std::size_t y, std::size_t width,
          std::size_t height, unsigned char value) {
  if (x >= plane.width) return;
  const std::size_t right = std::min(plane.width, x + width);
  for (std::size_t row = y; row < std::min(plane.height, y + height); ++row) {
    unsigned char* line = plane.data + row * plane.stride;
    std::fill(line + x, line + right, value);
  }
}

// Bits 0 to 6: top, upper right, lower right, bottom, lower left, upper left, middle.
constexpr std::array<unsigned int, 10> kSegments = {0x3F, 0x06, 0x5B, 0x4F, 0x66,
                                                    0x6D, 0x7D, 0x07, 0x7F, 0x6F};

void drawDigit(const LumaPlane& plane, std::size_t x, std::size_t y, std::size_t unit, char digit) {
  struct Segment {
    std::size_t x, y, width, height;
  };
  static constexpr std::array<Segment, 7> kBars = {{{0, 0, 5, 1},
                                                    {4, 0, 1, 5},
                                                    {4, 4, 1, 5},
                                                    {0, 8, 5, 1},
                                                    {0, 4, 1, 5},
                                                    {0, 0, 1, 5},
                                                    {0, 4, 5, 1}}};
  const unsigned int lit = kSegments[static_cast<std::size_t>(digit - '0')];
  for (std::size_t i = 0; i < kBars.size(); ++i) {
    if ((lit >> i & 1U) == 0) continue;
    const Segment& bar = kBars[i];
    fill(plane, x + bar.x * unit, y + bar.y * unit, bar.width * unit, bar.height * unit, kWhite);
  }
}

std::string timeOfDay() {
  std::timespec now = {};
  std::timespec_get(&now, TIME_UTC);
  std::tm local = {};
  localtime_r(&now.tv_sec, &local);
  return base::text("{:02}:{:02}:{:02}.{:02}", local.tm_hour, local.tm_min, local.tm_sec,
                    now.tv_nsec / 10'000'000);
}

GstPadProbeReturn onFrame(GstPad* /*pad*/, GstPadProbeInfo* probe, gpointer data) {
  GstBuffer* buffer = gst_buffer_make_writable(GST_PAD_PROBE_INFO_BUFFER(probe));
  GST_PAD_PROBE_INFO_DATA(probe) = buffer;
  GstVideoFrame frame;
  if (gst_video_frame_map(&frame, held<GstVideoInfo>(data).get(), buffer, GST_MAP_WRITE) == 0) {
    return GST_PAD_PROBE_OK;
  }
  const LumaPlane plane = {static_cast<unsigned char*>(GST_VIDEO_FRAME_PLANE_DATA(&frame, 0)),
                           static_cast<std::size_t>(GST_VIDEO_FRAME_PLANE_STRIDE(&frame, 0)),
                           static_cast<std::size_t>(GST_VIDEO_FRAME_WIDTH(&frame)),
                           static_cast<std::size_t>(GST_VIDEO_FRAME_HEIGHT(&frame))};
  drawDigits(plane, timeOfDay());
  gst_video_frame_unmap(&frame);
  return GST_PAD_PROBE_OK;
}

}  // namespace

void drawDigits(const LumaPlane& plane, std::string_view text) {
  const std::size_t unit = std::max<std::size_t>(1, plane.width / 160);
  const std::size_t height = 13 * unit;
  if (plane.height < height) return;
  const std::size_t top = plane.height - height;
  std::size_t x = 2 * unit;
  std::size_t width = 3 * unit;
  for (const char c : text) width += (c == ':' || c == '.' ? 3 : 7) * unit;
  fill(plane, 0, top, width, height, kBlack);
  for (const char c : text) {
    if (c >= '0' && c <= '9') {
      drawDigit(plane, x, top + 2 * unit, unit, c);
      x += 7 * unit;
      continue;
    }
    if (c == ':') fill(plane, x, top + 4 * unit, unit, unit, kWhite);
    fill(plane, x, top + (c == ':' ? 8 : 10) * unit, unit, unit, kWhite);
    x += 3 * unit;
  }
}

void stampClock(GstBin* bin, const char* name, int width, int height) {
  const GstPtr<GstElement> element(gst_bin_get_by_name(bin, name));
  if (!element) return;
  const auto info = std::make_shared<GstVideoInfo>();
  gst_video_info_set_format(info.get(), GST_VIDEO_FORMAT_I420, static_cast<guint>(width),
                            static_cast<guint>(height));
  addProbe(element.get(), "src", info, onFrame);
}

}  // namespace lumsar::service
