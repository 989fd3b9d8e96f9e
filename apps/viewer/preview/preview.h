// Preview: what a camera's row shows of what goes to the VM; a value without a window.
#pragma once

#include <gdk-pixbuf/gdk-pixbuf.h>

#include <cstdint>
#include <memory>
#include <string>

namespace lumsar::viewer {

// Its place in the window, at a scale of 1.
inline constexpr int kPreviewWidth = 96;
inline constexpr int kPreviewHeight = 54;

using Image = std::shared_ptr<GdkPixbuf>;

struct Preview {
  std::string camera;  // its id
  Image image;         // none of a frame that cannot be shown
  std::uint32_t encoding = 0;
};

// Pixels of the screen.
struct ImageSize {
  int width = 0;
  int height = 0;
  bool operator==(const ImageSize&) const = default;
};

constexpr ImageSize previewSize(int scale) {
  return {kPreviewWidth * scale, kPreviewHeight * scale};
}

// The largest of the frame's shape in there, but never larger than the frame; 0 by 0 of a frame
// that is not decoded.
ImageSize sizeWithin(ImageSize space, ImageSize frame);

}  // namespace lumsar::viewer
