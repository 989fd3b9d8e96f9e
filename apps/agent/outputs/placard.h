// Placard: a grey image that says in white letters why there are no frames. Made without a codec,
// so that the static agent can show it, too.
#pragma once

#include <cstdint>
#include <vector>

#include "decode/raw_format.h"

namespace lumsar::agent {

enum class Notice {
  CameraStarts,  // before its first frame
  NoSignal,      // frames have stopped coming
};

// Whether there is one of this encoding and size.
constexpr bool hasPlacard(std::uint32_t encoding, FrameSize size) {
  return (encoding == kEncodingMjpg || isRaw(encoding)) && isDecodable(size);
}

// A frame of this encoding and size. Images that are too small for letters are grey.
std::vector<unsigned char> placard(Notice notice, std::uint32_t encoding, FrameSize size);

}  // namespace lumsar::agent
