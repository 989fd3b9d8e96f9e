#include "decode/scaler.h"

extern "C" {
#include <libavutil/imgutils.h>
}

#include <algorithm>
#include <array>
#include <cstdint>

namespace lumsar::agent {
namespace {

AVPixelFormat layoutOf(std::uint32_t encoding) {
  if (encoding == kRawYuy2) return AV_PIX_FMT_YUYV422;
  return encoding == kRawNv12 ? AV_PIX_FMT_NV12 : AV_PIX_FMT_YUV420P;
}

// Colours stand for blocks of two by two pixels.
int even(std::int64_t side) {
  return static_cast<int>(std::max<std::int64_t>(side & ~std::int64_t{1}, 2));
}

struct Target {
  std::array<unsigned char*, 4> planes{};
  std::array<int, 4> strides{};
};

Target targetOf(const RawFormat& format, std::span<unsigned char> to) {
  Target target;
  const std::size_t columns = (format.size.width + 1U) / 2;
  const std::size_t rows = (format.size.height + 1U) / 2;
  const int stride = static_cast<int>(rawStride(format.encoding, format.size));
  target.planes[0] = to.data();
  target.strides[0] = stride;
  if (format.encoding == kRawYuy2) return target;
  target.planes[1] = to.data() + static_cast<std::size_t>(format.size.width) * format.size.height;
  target.strides[1] = static_cast<int>(columns);
  if (format.encoding == kRawNv12) {
    target.strides[1] = static_cast<int>(2 * columns);
    return target;
  }
  target.planes[2] = target.planes[1] + columns * rows;
  target.strides[2] = static_cast<int>(columns);
  return target;
}

void paintBlack(const RawFormat& format, Target& target) {
  std::array<std::ptrdiff_t, 4> strides{};
  std::copy(target.strides.begin(), target.strides.end(), strides.begin());
  av_image_fill_black(target.planes.data(), strides.data(), layoutOf(format.encoding),
                      format.fullRange ? AVCOL_RANGE_JPEG : AVCOL_RANGE_MPEG, format.size.width,
                      format.size.height);
}

// Moved to the corner of an area, whose sides and position are even.
void moveTo(int x, int y, const RawFormat& format, Target& target) {
  target.planes[0] += static_cast<std::ptrdiff_t>(y) * target.strides[0];
  target.planes[0] += format.encoding == kRawYuy2 ? 2 * x : x;
  for (std::size_t i = 1; i < 3 && target.planes[i] != nullptr; ++i) {
    target.planes[i] += static_cast<std::ptrdiff_t>(y / 2) * target.strides[i];
    target.planes[i] += format.encoding == kRawNv12 ? x : x / 2;
  }
}

}  // namespace

// The largest of the image's shape that fits, in the middle.
Scaler::Area Scaler::areaFor(const video::ImageFormat& image) const {
  Area area{0, 0, m_format.size.width, m_format.size.height};
  const std::int64_t width = area.width;
  const std::int64_t height = area.height;
  const std::int64_t wider = image.width * height - image.height * width;
  if (wider > 0) {
    area.height = std::min(area.height, even(width * image.height / image.width));
    area.y = static_cast<int>((height - area.height) / 2) & ~1;
  } else if (wider < 0) {
    area.width = std::min(area.width, even(height * image.width / image.height));
    area.x = static_cast<int>((width - area.width) / 2) & ~1;
  }
  return area;
}

bool Scaler::scale(const video::Image& image, std::span<unsigned char> to) {
  const Area area = areaFor(image.format);
  const AVPixelFormat layout = layoutOf(m_format.encoding);
  // libswscale writes more than a row, so not into the frame itself.
  const AVFrame* const scaled =
      m_converter.convert(image, {layout, area.width, area.height, m_format.fullRange});
  if (scaled == nullptr) return false;
  Target target = targetOf(m_format, to);
  const bool fills = area.width == m_format.size.width && area.height == m_format.size.height;
  if (!fills) paintBlack(m_format, target);
  moveTo(area.x, area.y, m_format, target);
  std::array<const unsigned char*, 4> from{};
  std::copy_n(scaled->data, from.size(), from.begin());
  av_image_copy(target.planes.data(), target.strides.data(), from.data(), scaled->linesize, layout,
                area.width, area.height);
  return true;
}

}  // namespace lumsar::agent
