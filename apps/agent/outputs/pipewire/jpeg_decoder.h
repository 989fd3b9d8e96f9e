// JpegDecoder: JPEGs from another machine as I420 frames, for consumers that want no JPEG. Not
// thread-safe.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "base/text/bytes.h"

namespace lumsar::agent {

// Larger images are not decoded, so that a peer cannot ask for any amount of memory.
inline constexpr std::size_t kMaxDecodedPixels = std::size_t{4096} * 2304;

struct FrameSize {
  std::uint16_t width = 0;
  std::uint16_t height = 0;
  bool operator==(const FrameSize&) const = default;
};

constexpr bool isDecodable(FrameSize size) {
  const std::size_t pixels = std::size_t{size.width} * size.height;
  return pixels > 0 && pixels <= kMaxDecodedPixels;
}

// Three planes without gaps: brightness, then two of colour at half the size, rounded up.
constexpr std::size_t i420Bytes(FrameSize size) {
  const std::size_t colour = std::size_t{(size.width + 1U) / 2} * ((size.height + 1U) / 2);
  return std::size_t{size.width} * size.height + 2 * colour;
}

class JpegDecoder {
 public:
  // False when the JPEG is damaged, has another size, several scans or is too large. `to` has to
  // hold i420Bytes(size); after a failure its content is of no use. Throws std::bad_alloc.
  bool decode(base::Bytes jpeg, FrameSize size, std::span<unsigned char> to);

 private:
  std::vector<unsigned char> m_scratch;  // for planes that are not sampled like those of I420
};

}  // namespace lumsar::agent
