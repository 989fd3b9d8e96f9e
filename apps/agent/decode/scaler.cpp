#include "decode/scaler.h"

extern "C" {
#include <libavutil/imgutils.h>
#include <libavutil/opt.h>
}

#include <algorithm>
#include <cstdint>
#include <initializer_list>
#include <new>
#include <utility>

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
Scaler::Area Scaler::areaFor(const Source& source) const {
  const std::int64_t width = m_format.size.width;
  const std::int64_t height = m_format.size.height;
  if (source.width * height == source.height * width) {
    return {0, 0, static_cast<int>(width), static_cast<int>(height)};
  }
  Area area{0, 0, static_cast<int>(width), static_cast<int>(height)};
  if (source.width * height > source.height * width) {
    area.height = std::min(area.height, even(width * source.height / source.width));
    area.y = static_cast<int>((height - area.height) / 2) & ~1;
  } else {
    area.width = std::min(area.width, even(height * source.width / source.height));
    area.x = static_cast<int>((width - area.width) / 2) & ~1;
  }
  return area;
}

bool Scaler::prepare(const Source& source) {
  if (m_source == source) return true;
  m_source.reset();
  m_area = areaFor(source);
  m_context.reset();
  // Ranges have to be known from the beginning: which code is chosen depends on them.
  std::unique_ptr<SwsContext, Free> context(sws_alloc_context());
  if (!context) throw std::bad_alloc();
  const std::initializer_list<std::pair<const char*, int>> options = {
      {"srcw", source.width},
      {"srch", source.height},
      {"src_format", source.layout},
      {"src_range", source.fullRange ? 1 : 0},
      {"dstw", m_area.width},
      {"dsth", m_area.height},
      {"dst_format", layoutOf(m_format.encoding)},
      {"dst_range", m_format.fullRange ? 1 : 0},
      {"sws_flags", SWS_BILINEAR}};
  for (const auto& [name, value] : options) av_opt_set_int(context.get(), name, value, 0);
  if (sws_init_context(context.get(), nullptr, nullptr) < 0) return false;
  // libswscale writes more than a row, so not into the frame itself.
  m_scaled.reset(av_frame_alloc());
  if (!m_scaled) throw std::bad_alloc();
  m_scaled->format = layoutOf(m_format.encoding);
  m_scaled->width = m_area.width;
  m_scaled->height = m_area.height;
  if (av_frame_get_buffer(m_scaled.get(), 0) != 0) throw std::bad_alloc();
  m_context = std::move(context);
  m_source = source;
  return true;
}

bool Scaler::scale(const Image& image, std::span<unsigned char> to) {
  if (!prepare({image.layout, image.width, image.height, image.fullRange})) return false;
  Target target = targetOf(m_format, to);
  const bool fills = m_area.width == m_format.size.width && m_area.height == m_format.size.height;
  if (!fills) paintBlack(m_format, target);
  moveTo(m_area.x, m_area.y, m_format, target);
  AVFrame& scaled = *m_scaled;
  if (sws_scale(m_context.get(), image.planes.data(), image.strides.data(), 0, image.height,
                scaled.data, scaled.linesize) != m_area.height) {
    return false;
  }
  std::array<const unsigned char*, 4> from{};
  std::copy_n(scaled.data, from.size(), from.begin());
  av_image_copy(target.planes.data(), target.strides.data(), from.data(), scaled.linesize,
                layoutOf(m_format.encoding), m_area.width, m_area.height);
  return true;
}

}  // namespace lumsar::agent
