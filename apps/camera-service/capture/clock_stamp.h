// Draws the time of day, to the hundredth of a second, into the pictures of a synthetic camera.
// Set up on the main thread, draws on the camera's streaming thread. No fonts, no libraries:
// seven-segment digits on the luminance plane.
#ifndef LUMSAR_CAMERA_SERVICE_CAPTURE_CLOCK_STAMP_H
#define LUMSAR_CAMERA_SERVICE_CAPTURE_CLOCK_STAMP_H

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

// Draws digits, colons and points, white on black, in the lower left corner.
void drawDigits(const LumaPlane& plane, std::string_view text);

// Stamps each I420 picture that leaves the element `name` of `bin`.
void stampClock(GstBin* bin, const char* name, int width, int height);

}  // namespace lumsar::service

#endif
