// The latest latencies, for their median, and the worst of all.
#pragma once

#include <algorithm>
#include <cstdint>
#include <vector>

namespace lumsar::base {

class Latencies {
 public:
  void add(std::uint64_t latency) {
    m_worst = std::max(m_worst, latency);
    if (m_samples.size() < kKept) {
      m_samples.push_back(latency);
    } else {
      m_samples[m_next++ % kKept] = latency;
    }
  }
  void clear() { *this = {}; }

  std::uint64_t median() const {
    if (m_samples.empty()) return 0;
    std::vector<std::uint64_t> sorted = m_samples;
    const auto middle = sorted.begin() + static_cast<std::ptrdiff_t>(sorted.size() / 2);
    std::ranges::nth_element(sorted, middle);
    return *middle;
  }
  std::uint64_t worst() const { return m_worst; }

 private:
  // Enough for a median that means something, bounded for long runs.
  static constexpr std::size_t kKept = 4096;
  std::vector<std::uint64_t> m_samples;
  std::size_t m_next = 0;
  std::uint64_t m_worst = 0;
};

}  // namespace lumsar::base
