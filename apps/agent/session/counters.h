// What is counted of one camera: frames, bytes, losses, latency, rate.
// Owned by Camera; no I/O. Bound to the channel's thread.
#ifndef LUMSAR_AGENT_SESSION_COUNTERS_H
#define LUMSAR_AGENT_SESSION_COUNTERS_H

#include <cstdint>
#include <optional>
#include <vector>

namespace lumsar::agent {

// The last 4096 latencies: enough for a median that means something, bounded for long runs.
class Latencies {
 public:
  void add(std::uint64_t latency);
  void clear();
  std::uint64_t median() const;
  std::uint64_t worst() const { return m_worst; }  // of all, not only of the kept ones

 private:
  std::vector<std::uint64_t> m_samples;
  std::size_t m_next = 0;
  std::uint64_t m_worst = 0;
};

// Finds gaps in the service's count of frames.
class SequenceWatch {
 public:
  // How many frames are missing before this one. A step back is a new beginning, not a gap.
  std::uint32_t gapBefore(std::uint32_t sequence);
  void restart() { m_expected.reset(); }

 private:
  std::optional<std::uint32_t> m_expected;
};

struct Counters {
  std::uint64_t frames = 0;
  std::uint64_t bytes = 0;
  std::uint64_t lost = 0;
  std::uint64_t bad = 0;  // no whole picture, or one that nothing here can show
};

}  // namespace lumsar::agent

#endif
