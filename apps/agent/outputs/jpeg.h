// The little that is known here of JPEG: whether bytes can be one, and how to make a grey one.
// Called by Camera and the video device's sink. No state: reentrant.
#ifndef LUMSAR_AGENT_OUTPUTS_JPEG_H
#define LUMSAR_AGENT_OUTPUTS_JPEG_H

#include <cstdint>
#include <span>
#include <vector>

namespace lumsar::agent {

// True for FF D8 … FF D9.
inline bool isWholeJpeg(std::span<const unsigned char> picture) {
  const std::size_t size = picture.size();
  return size >= 4 && picture[0] == 0xFF && picture[1] == 0xD8 && picture[size - 2] == 0xFF &&
         picture[size - 1] == 0xD9;
}

// A grey picture of this size: what a video device shows before the camera's first one.
std::vector<unsigned char> greyJpeg(std::uint16_t width, std::uint16_t height);

}  // namespace lumsar::agent

#endif
