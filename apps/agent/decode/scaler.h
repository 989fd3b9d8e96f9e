// Scaler: images of any size and layout as raw frames of one format, by libswscale. The aspect
// ratio is kept; the rest of the frame is black. Not thread-safe.
#pragma once

extern "C" {
#include <libavutil/frame.h>
#include <libswscale/swscale.h>
}

#include <array>
#include <memory>
#include <optional>
#include <span>

#include "decode/raw_format.h"
#include "video/free_by_address.h"

namespace lumsar::agent {

// As libavcodec describes it.
struct Image {
  AVPixelFormat layout = AV_PIX_FMT_NONE;
  int width = 0;
  int height = 0;
  bool fullRange = false;
  std::array<const unsigned char*, 4> planes{};
  std::array<int, 4> strides{};
};

class Scaler {
 public:
  explicit Scaler(const RawFormat& format) : m_format(format) {}

  // False for an image that libswscale cannot convert. `to` has to hold rawBytes() of the format.
  bool scale(const Image& image, std::span<unsigned char> to);

 private:
  struct Free {
    void operator()(SwsContext* context) const { sws_freeContext(context); }
  };
  // What a context was made for.
  struct Source {
    AVPixelFormat layout;
    int width;
    int height;
    bool fullRange;
    bool operator==(const Source&) const = default;
  };
  struct Area {
    int x;
    int y;
    int width;
    int height;
  };

  bool prepare(const Source& source);
  Area areaFor(const Source& source) const;

  const RawFormat m_format;
  std::optional<Source> m_source;
  Area m_area{};
  std::unique_ptr<SwsContext, Free> m_context;
  std::unique_ptr<AVFrame, video::FreeByAddress<av_frame_free>> m_scaled;
};

}  // namespace lumsar::agent
