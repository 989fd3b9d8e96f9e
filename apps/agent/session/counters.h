// What is counted for one camera.
#pragma once

#include <cstdint>
#include <optional>

namespace lumsar::agent {

// Finds gaps in the service's numbering of frames.
class SequenceWatch {
 public:
  // How many frames are missing before this one. A step back is a restart, not a gap.
  std::uint32_t gapBefore(std::uint32_t sequence) {
    constexpr std::uint32_t kHalf = 0x80000000U;
    const std::uint32_t gap = m_expected ? sequence - *m_expected : 0;
    m_expected = sequence + 1;
    return gap < kHalf ? gap : 0;
  }
  void restart() { m_expected.reset(); }

 private:
  std::optional<std::uint32_t> m_expected;
};

struct Counters {
  std::uint64_t frames = 0;
  std::uint64_t bytes = 0;
  std::uint64_t lost = 0;
  std::uint64_t bad = 0;  // not complete, or not decodable here
};

}  // namespace lumsar::agent
