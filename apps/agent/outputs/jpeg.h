// The little JPEG that is needed without a codec: whether bytes are complete, and a grey image.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace lumsar::agent {

// True for FF D8 … FF D9.
inline bool isCompleteJpeg(std::span<const unsigned char> data) {
  const std::size_t size = data.size();
  return size >= 4 && data[0] == 0xFF && data[1] == 0xD8 && data[size - 2] == 0xFF &&
         data[size - 1] == 0xD9;
}

// A grey image of this size: what a video device shows before the camera's first frame.
std::vector<unsigned char> greyJpeg(std::uint16_t width, std::uint16_t height);

}  // namespace lumsar::agent
