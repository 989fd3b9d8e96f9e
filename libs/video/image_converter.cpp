#include "video/image_converter.h"

extern "C" {
#include <libavutil/opt.h>
}

#include <algorithm>
#include <initializer_list>
#include <new>

namespace lumsar::video {

Image imageOf(const AVFrame& frame) {
  const bool isOldRange = frame.format == AV_PIX_FMT_YUVJ420P;  // the same, but deprecated
  Image image{{isOldRange ? AV_PIX_FMT_YUV420P : static_cast<AVPixelFormat>(frame.format),
               frame.width, frame.height, isOldRange || frame.color_range == AVCOL_RANGE_JPEG}};
  std::copy_n(frame.data, image.planes.size(), image.planes.begin());
  std::copy_n(frame.linesize, image.strides.size(), image.strides.begin());
  return image;
}

bool ImageConverter::prepare(const ImageFormat& from, const ImageFormat& to) {
  if (m_preparedFor == std::pair(from, to)) return true;
  m_preparedFor.reset();
  m_context.reset(sws_alloc_context());
  m_converted.reset(av_frame_alloc());
  if (!m_context || !m_converted) throw std::bad_alloc();
  // Ranges have to be known from the beginning: which code is chosen depends on them.
  const std::initializer_list<std::pair<const char*, int>> options = {
      {"srcw", from.width},        {"srch", from.height},
      {"src_format", from.layout}, {"src_range", from.fullRange ? 1 : 0},
      {"dstw", to.width},          {"dsth", to.height},
      {"dst_format", to.layout},   {"dst_range", to.fullRange ? 1 : 0},
      {"sws_flags", m_flags}};
  for (const auto& [name, value] : options) av_opt_set_int(m_context.get(), name, value, 0);
  if (sws_init_context(m_context.get(), nullptr, nullptr) < 0) return false;
  // libswscale writes more than a row, for which a frame has space.
  m_converted->format = to.layout;
  m_converted->width = to.width;
  m_converted->height = to.height;
  if (av_frame_get_buffer(m_converted.get(), 0) != 0) throw std::bad_alloc();
  m_preparedFor.emplace(from, to);
  return true;
}

const AVFrame* ImageConverter::convert(const Image& image, const ImageFormat& to) {
  if (!prepare(image.format, to)) return nullptr;
  const int rows = sws_scale(m_context.get(), image.planes.data(), image.strides.data(), 0,
                             image.format.height, m_converted->data, m_converted->linesize);
  return rows == to.height ? m_converted.get() : nullptr;
}

}  // namespace lumsar::video
