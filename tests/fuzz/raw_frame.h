// RawFrame: a frame of any format, and memory behind it that stays as it is.
#pragma once

#include <algorithm>
#include <cstdint>
#include <span>
#include <vector>

#include "decode/raw_format.h"
#include "fuzz/input.h"

namespace lumsar::fuzz {

inline std::uint16_t side(Input& input) {
  constexpr std::size_t kMostSide = 512;  // above that only the time differs
  return static_cast<std::uint16_t>(input.word() % kMostSide + 1);
}

inline agent::RawFormat rawFormat(Input& input) {
  constexpr std::uint32_t kLayouts[] = {agent::kRawI420, agent::kRawYuy2, agent::kRawNv12};
  return {kLayouts[input.byte() % 3], {side(input), side(input)}, input.byte() % 2 == 0};
}

class RawFrame {
 public:
  explicit RawFrame(const agent::RawFormat& format)
      : m_size(agent::rawBytes(format.encoding, format.size)),
        m_memory(m_size + kMargin, kUntouched) {}

  std::span<unsigned char> bytes() { return std::span(m_memory).first(m_size); }
  void requireNothingBehind() const {
    const auto behind = std::span(m_memory).subspan(m_size);
    require(std::ranges::count(behind, kUntouched) == kMargin,
            "what is behind the frame stays as it is");
  }

 private:
  static constexpr unsigned char kUntouched = 77;
  static constexpr std::ptrdiff_t kMargin = 64;

  const std::size_t m_size;
  std::vector<unsigned char> m_memory;
};

}  // namespace lumsar::fuzz
