// One format in which a camera offers its frames.
#pragma once

#include <string>

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

}  // namespace lumsar::service
