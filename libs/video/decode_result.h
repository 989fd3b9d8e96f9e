// What comes of a frame that is to be decoded, and which ones are not.
#pragma once

#include <cstddef>
#include <cstdint>

namespace lumsar::video {

enum class DecodeResult : std::uint32_t {
  Decoded = 1,
  NotYet = 2,   // the decoder waits for another frame first
  Damaged = 3,  // nothing could be made of it
};

// Larger images are not decoded, so that nobody can ask for any amount of memory.
inline constexpr std::size_t kMaxDecodedPixels = std::size_t{4096} * 2304;

}  // namespace lumsar::video
