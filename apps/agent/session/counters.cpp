// Counting. Owned by Camera.
// Bound to the channel's thread; no I/O.
#include "session/counters.h"

#include <algorithm>

namespace lumsar::agent {
namespace {
constexpr std::size_t kKept = 4096;
}

void Latencies::add(std::uint64_t latency) {
  m_worst = std::max(m_worst, latency);
  if (m_samples.size() < kKept) {
    m_samples.push_back(latency);
    return;
  }
  m_samples[m_next] = latency;
  m_next = (m_next + 1) % kKept;
}

void Latencies::clear() {
  m_samples.clear();
  m_next = 0;
  m_worst = 0;
}

std::uint64_t Latencies::median() const {
  if (m_samples.empty()) return 0;
  std::vector<std::uint64_t> sorted = m_samples;
  const auto middle = sorted.begin() + static_cast<std::ptrdiff_t>(sorted.size() / 2);
  std::ranges::nth_element(sorted, middle);
  return *middle;
}

std::uint32_t SequenceWatch::gapBefore(std::uint32_t sequence) {
  constexpr std::uint32_t kHalf = 0x80000000U;
  const std::uint32_t gap = m_expected ? sequence - *m_expected : 0;
  m_expected = sequence + 1;
  return gap < kHalf ? gap : 0;
}

}  // namespace lumsar::agent
