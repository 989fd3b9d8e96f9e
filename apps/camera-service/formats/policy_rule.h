// PolicyRule: how frames are captured and encoded.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace lumsar::service {

enum class SentEncoding {
  Mjpg,
  H264,
  Auto,  // H.264 where the VM can show it, else MJPG
};

// For one kind of camera, or for all where the ids are not set.
struct PolicyRule {
  std::optional<std::uint16_t> vendorId;
  std::optional<std::uint16_t> productId;
  int maxWidth = 4000;
  int maxHeight = 4000;
  int quality = 50;    // JPEG quality, 0 to 100
  int intervalMs = 0;  // between frames; 0: the camera's own rate
  SentEncoding encoding = SentEncoding::Mjpg;
  bool followVm = true;  // the rate follows what the VM can take
  std::vector<std::string> pixelFormats = {"MJPG", "YUYV"};  // of the camera, best first

  bool operator==(const PolicyRule&) const = default;
};

}  // namespace lumsar::service
