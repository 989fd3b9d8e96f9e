// The programs, and between host and guest agent a line that is thin and records which frames
// arrive when.
#pragma once

#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "lumsar/assembler.h"
#include "support/process.h"
#include "support/slow_line.h"
#include "support/temporary_directory.h"

namespace lumsar::test {

struct Arrival {
  std::uint64_t time = 0;  // µs, cameraClock()
  std::uint64_t captured = 0;
  std::size_t size = 0;
  CameraFrame frame;

  std::uint64_t latency() const { return time > captured ? time - captured : 0; }
  bool isKey() const { return (frame.flags & kFrameIsKey) != 0; }
};

class ThinChain {
 public:
  struct Setup {
    std::string bin;
    std::string camera;       // as for --camera
    std::string cameraId;     // as for "share"
    std::string policy = {};  // its one rule, JSON
    LineQuality line = {};
  };

  // Starts everything.
  explicit ThinChain(Setup setup);

  // Since the last clear().
  std::vector<Arrival> arrivals() const;
  void clear();
  void cut(bool cut) { m_line->cut(cut); }
  // As JSON, or as a table.
  std::string status(bool json = true) const;
  std::string logs();

 private:
  Process::Words words(const std::string& program, Process::Words more) const;
  ProcessSetup environment() const;
  void onArrival(View bytes);

  const Setup m_setup;
  const TemporaryDirectory m_directory{};
  mutable std::mutex m_mutex;
  std::vector<Arrival> m_arrivals;
  MessageAssembler m_messages;
  std::optional<Process> m_service;
  std::optional<Process> m_agent;
  std::optional<SlowLine> m_line;
  std::optional<Process> m_host;
};

}  // namespace lumsar::test
