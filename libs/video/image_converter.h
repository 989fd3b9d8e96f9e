// ImageConverter: images of one layout, size and range as those of another, by libswscale. Not
// thread-safe.
#pragma once

extern "C" {
#include <libavutil/frame.h>
#include <libswscale/swscale.h>
}

#include <array>
#include <memory>
#include <optional>
#include <utility>

#include "video/free_by_address.h"

namespace lumsar::video {

struct ImageFormat {
  AVPixelFormat layout = AV_PIX_FMT_NONE;
  int width = 0;
  int height = 0;
  bool fullRange = false;
  bool operator==(const ImageFormat&) const = default;
};

// As libavcodec describes it.
struct Image {
  ImageFormat format;
  std::array<const unsigned char*, 4> planes{};
  std::array<int, 4> strides{};
};
Image imageOf(const AVFrame& frame);

class ImageConverter {
 public:
  // `flags` are libswscale's: how it scales.
  explicit ImageConverter(int flags) : m_flags(flags) {}

  // Valid until the next call. Null for an image that libswscale cannot convert.
  const AVFrame* convert(const Image& image, const ImageFormat& to);

 private:
  struct Free {
    void operator()(SwsContext* context) const { sws_freeContext(context); }
  };

  bool prepare(const ImageFormat& from, const ImageFormat& to);

  const int m_flags;
  std::optional<std::pair<ImageFormat, ImageFormat>> m_preparedFor;
  std::unique_ptr<SwsContext, Free> m_context;
  std::unique_ptr<AVFrame, FreeByAddress<av_frame_free>> m_converted;
};

}  // namespace lumsar::video
