// What the service knows of a camera before it runs: which one it is and which formats it offers.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "formats/camera_format.h"

// GStreamer's own tag; the object is only passed on here.
// NOLINTNEXTLINE(bugprone-reserved-identifier)
using GstDevice = struct _GstDevice;

namespace lumsar::service {

struct CameraInfo {
  std::string id;    // stays the same when the camera is unplugged and plugged again
  std::string name;  // for people
  std::uint16_t vendorId = 0;
  std::uint16_t productId = 0;
  std::vector<CameraFormat> formats;
  std::shared_ptr<GstDevice> device;
};

// A camera in the service's list. `number` stands for it in camera data, for the service's life.
struct Camera {
  CameraInfo info;
  std::uint32_t number = 0;
  bool present = false;
};

}  // namespace lumsar::service
