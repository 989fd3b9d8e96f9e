#include "preview/preview.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "video/decode_result.h"

namespace lumsar::viewer {

ImageSize sizeWithin(ImageSize space, ImageSize frame) {
  if (frame.width <= 0 || frame.height <= 0) return {};
  const auto [width, height] = frame;
  if (static_cast<std::size_t>(width) * static_cast<std::size_t>(height) >
      video::kMaxDecodedPixels) {
    return {};
  }
  const double scale = std::min({1.0, 1.0 * space.width / width, 1.0 * space.height / height});
  const auto scaled = [scale](int side) {
    return std::max(1, static_cast<int>(std::lround(scale * side)));
  };
  return {scaled(width), scaled(height)};
}

}  // namespace lumsar::viewer
