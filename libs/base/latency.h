// The latest latencies, for their median and percentiles, and the worst of all.
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

  std::uint64_t median() const { return percentile(50); }
  // What so many of a hundred are below.
  std::uint64_t percentile(std::size_t percent) const {
    if (m_samples.empty()) return 0;
    std::vector<std::uint64_t> sorted = m_samples;
    const std::size_t index = std::min(sorted.size() * percent / 100, sorted.size() - 1);
    const auto wanted = sorted.begin() + static_cast<std::ptrdiff_t>(index);
    std::ranges::nth_element(sorted, wanted);
    return *wanted;
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
