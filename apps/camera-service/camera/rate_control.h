// RateControl: finds the frame rate that a VM can take, from its report about once a second. It
// falls quickly to what the VM managed and rises carefully while the VM keeps up.
#pragma once

#include <cstdint>

#include "lumsar/camera_data.h"

namespace lumsar::service {

class RateControl {
 public:
  // `offered`: frames so far that were meant for the VM, including those that were dropped.
  // `now`: µs on any steady clock.
  void update(const CameraStatistics& statistics, std::uint64_t offered, std::int64_t now);
  void reset() { *this = RateControl(); }

  // µs between frames; 0 when the VM keeps up with every rate.
  std::int64_t interval() const;
  double limit() const { return m_limit; }  // frames per second, 0 when there is none

 private:
  double m_limit = 0;
  int m_behind = 0;  // reports in a row in which the VM did not keep up
  std::int64_t m_lastTime = 0;
  std::uint64_t m_lastOffered = 0;
};

}  // namespace lumsar::service
