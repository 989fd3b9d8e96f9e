// Scaler: images of any size and layout as raw frames of one format, by libswscale. The aspect
// ratio is kept; the rest of the frame is black. Not thread-safe.
#pragma once

#include <span>

#include "decode/raw_format.h"
#include "video/image_converter.h"

namespace lumsar::agent {

class Scaler {
 public:
  explicit Scaler(const RawFormat& format) : m_format(format) {}

  // False for an image that libswscale cannot convert. `to` has to hold rawBytes() of the format.
  bool scale(const video::Image& image, std::span<unsigned char> to);

 private:
  struct Area {
    int x;
    int y;
    int width;
    int height;
  };

  Area areaFor(const video::ImageFormat& image) const;

  const RawFormat m_format;
  video::ImageConverter m_converter{SWS_BILINEAR};
};

}  // namespace lumsar::agent
