// The little that is read of a JPEG without a codec.
#pragma once

#include <span>

namespace lumsar::agent {

// True for FF D8 … FF D9.
inline bool isCompleteJpeg(std::span<const unsigned char> data) {
  const std::size_t size = data.size();
  return size >= 4 && data[0] == 0xFF && data[1] == 0xD8 && data[size - 2] == 0xFF &&
         data[size - 1] == 0xD9;
}

}  // namespace lumsar::agent
