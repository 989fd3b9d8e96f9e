// Draws the time of day into the frames of a synthetic camera, to the hundredth of a second:
// comparing it with a clock shows the latency. GStreamer's own overlay shows no fractions of
// seconds.
#pragma once

#include <gst/gst.h>

#include <cstddef>
#include <string_view>

namespace lumsar::service {

struct LumaPlane {
  unsigned char* data = nullptr;
  std::size_t stride = 0;
  std::size_t width = 0;
  std::size_t height = 0;
};

// Draws seven-segment digits, colons and points, white on black, in the lower left corner.
void drawDigits(const LumaPlane& plane, std::string_view text);

// Stamps each I420 frame that leaves the element `name` of `bin`.
void stampClock(GstBin* bin, const char* name, int width, int height);

}  // namespace lumsar::service
