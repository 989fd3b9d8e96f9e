#include "camera/rate_control.h"

#include <algorithm>

namespace lumsar::service {
namespace {

constexpr double kSlowest = 1;               // frames per second: never less
constexpr double kFastest = 120;             // a limit above this is lifted
constexpr double kBehind = 0.85;             // delivered less than this part of what was offered
constexpr double kKeepsUp = 0.95;            // delivered at least this part
constexpr double kRise = 1.25;               // with each report
constexpr int kReportsBehind = 2;            // one alone may be an accident
constexpr std::int64_t kTooShort = 200'000;  // µs: too few frames to judge by

}  // namespace

void RateControl::update(const CameraStatistics& statistics, std::uint64_t offered,
                         std::int64_t now) {
  const std::int64_t span = now - m_lastTime;
  const bool first = m_lastTime == 0;
  if (!first && span < kTooShort) return;
  const std::uint64_t frames = offered - m_lastOffered;
  m_lastTime = now;
  m_lastOffered = offered;
  if (first || frames == 0) return;
  const double sent = static_cast<double>(frames) * 1e6 / static_cast<double>(span);
  const double delivered = statistics.rate / 1000.0;
  if (delivered < kBehind * sent) {
    if (++m_behind >= kReportsBehind) m_limit = std::max(kSlowest, delivered);
    return;
  }
  m_behind = 0;
  if (m_limit == 0 || delivered < kKeepsUp * sent) return;
  m_limit *= kRise;
  if (m_limit > kFastest) m_limit = 0;
}

std::int64_t RateControl::interval() const {
  return m_limit == 0 ? 0 : static_cast<std::int64_t>(1e6 / m_limit);
}

}  // namespace lumsar::service
