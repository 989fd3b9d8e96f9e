// FrameStats: counts frames and keeps the latest latencies. Not thread-safe.
#ifndef LUMSAR_HOST_TRANSPORT_FRAME_STATS_H
#define LUMSAR_HOST_TRANSPORT_FRAME_STATS_H

#include <algorithm>
#include <cstdint>
#include <vector>

#include "lumsar/camera_data.h"

namespace lumsar::host {

class FrameStats {
 public:
  struct Summary {
    std::uint64_t frames = 0;
    std::uint64_t bytes = 0;
    std::uint64_t medianLatency = 0;  // µs, of the latest kSamples frames
    std::uint64_t worstLatency = 0;   // µs, of all
  };

  void add(std::uint64_t captured, std::size_t bytes) {
    const std::uint64_t now = cameraClock();
    const std::uint64_t latency = now > captured ? now - captured : 0;
    if (m_latencies.size() < kSamples) {
      m_latencies.push_back(latency);
    } else {
      m_latencies[m_summary.frames % kSamples] = latency;
    }
    ++m_summary.frames;
    m_summary.bytes += bytes;
    m_summary.worstLatency = std::max(m_summary.worstLatency, latency);
  }

  Summary summary() const {
    Summary result = m_summary;
    if (m_latencies.empty()) return result;
    std::vector<std::uint64_t> sorted = m_latencies;
    const auto middle = sorted.begin() + static_cast<std::ptrdiff_t>(sorted.size() / 2);
    std::nth_element(sorted.begin(), middle, sorted.end());
    result.medianLatency = *middle;
    return result;
  }

 private:
  static constexpr std::size_t kSamples = 1024;
  Summary m_summary;
  std::vector<std::uint64_t> m_latencies;
};

}  // namespace lumsar::host

#endif
