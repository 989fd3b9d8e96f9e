// What the service knows of a camera before it runs: who it is and which formats it offers.
// Filled by DeviceWatch, kept by the Catalogue, read everywhere. Plain data, bound to one thread.
#ifndef LUMSAR_PEERS_SERVICE_CAMERA_INFO_H
#define LUMSAR_PEERS_SERVICE_CAMERA_INFO_H

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "service/gst_ptr.h"

namespace lumsar::service {

struct CameraFormat {
  std::string encoding;  // "MJPG" or a raw format by GStreamer's name, such as "YUY2"
  int width = 0;
  int height = 0;
  int rateNumerator = 0;  // frames per second; 0/1 where it is not known
  int rateDenominator = 1;

  double rate() const { return static_cast<double>(rateNumerator) / rateDenominator; }
  bool operator==(const CameraFormat&) const = default;
};

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

#endif
