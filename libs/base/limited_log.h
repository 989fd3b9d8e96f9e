// LimitedLog: warnings that a peer can cause as often as it likes. Some are written, the rest is
// counted. Not thread-safe.
#pragma once

#include <cstdint>
#include <string>
#include <utility>

#include "base/log.h"
#include "base/rate_limit.h"

namespace lumsar::base {

class LimitedLog {
 public:
  LimitedLog() = default;
  LimitedLog(const LimitedLog&) = delete;
  LimitedLog& operator=(const LimitedLog&) = delete;
  ~LimitedLog() { sayCount(); }

  void warn(const std::string& line) {
    if (!m_limit.allow()) {
      ++m_left;
      return;
    }
    sayCount();
    logWarning("{}", line);
  }

 private:
  void sayCount() {
    if (m_left > 0) logWarning("{} more such lines were left out", std::exchange(m_left, 0));
  }

  RateLimit m_limit{20, std::chrono::seconds(10)};
  std::uint64_t m_left = 0;
};

}  // namespace lumsar::base
