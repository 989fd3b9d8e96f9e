// One frame on its way from the connection to the sinks, which share it unchanged on any thread.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "lumsar/camera_data.h"

namespace lumsar::agent {

struct Frame {
  CameraFrame format;
  std::uint64_t captured = 0;  // both in µs on the record's clock
  std::uint64_t arrived = 0;
  std::vector<unsigned char> data;
};
using FramePtr = std::shared_ptr<const Frame>;

}  // namespace lumsar::agent
