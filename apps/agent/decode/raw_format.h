// RawFormat: frames without compression, as consumers want them: their layout, by V4L2's numbers,
// and their size.
#pragma once

#include <cstddef>
#include <cstdint>

#include "lumsar/camera_data.h"
#include "video/decode_result.h"

namespace lumsar::agent {

inline constexpr std::uint32_t kRawI420 = fourcc("YU12");  // three planes, colours at half the size
inline constexpr std::uint32_t kRawYuy2 = fourcc("YUYV");  // one plane, two bytes a pixel
inline constexpr std::uint32_t kRawNv12 = fourcc("NV12");  // two planes, colours interleaved

constexpr bool isRaw(std::uint32_t encoding) {
  return encoding == kRawI420 || encoding == kRawYuy2 || encoding == kRawNv12;
}

using video::kMaxDecodedPixels;

struct FrameSize {
  std::uint16_t width = 0;
  std::uint16_t height = 0;
  bool operator==(const FrameSize&) const = default;
};

constexpr bool isDecodable(FrameSize size) {
  const std::size_t pixels = std::size_t{size.width} * size.height;
  return pixels > 0 && pixels <= kMaxDecodedPixels;
}

struct RawFormat {
  std::uint32_t encoding = 0;  // isRaw()
  FrameSize size;
  bool fullRange = false;  // brightness from 0 to 255, as in JPEGs, instead of 16 to 235
  bool operator==(const RawFormat&) const = default;
};

// Planes follow one another without gaps; halves are rounded up.
constexpr std::size_t rawBytes(std::uint32_t encoding, FrameSize size) {
  const std::size_t columns = (size.width + 1U) / 2;
  const std::size_t rows = (size.height + 1U) / 2;
  if (encoding == kRawYuy2) return 4 * columns * size.height;
  return std::size_t{size.width} * size.height + 2 * columns * rows;
}

constexpr std::size_t i420Bytes(FrameSize size) {
  return rawBytes(kRawI420, size);
}

// From one row to the next, of the first plane.
constexpr std::size_t rawStride(std::uint32_t encoding, FrameSize size) {
  return encoding == kRawYuy2 ? 4 * ((size.width + 1U) / 2) : size.width;
}

}  // namespace lumsar::agent
