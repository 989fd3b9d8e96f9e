// One frame on its way from the connection to the sinks, which share it unchanged on any thread.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "frames/frame_budget.h"
#include "lumsar/camera_data.h"

namespace lumsar::agent {

struct Frame {
  CameraFrame format;
  std::uint64_t captured = 0;  // both in µs on the record's clock
  std::uint64_t arrived = 0;
  std::vector<unsigned char> data;
  FrameBudget::Share share;  // of the memory for all frames, as long as this one lives
};
using FramePtr = std::shared_ptr<const Frame>;

}  // namespace lumsar::agent
