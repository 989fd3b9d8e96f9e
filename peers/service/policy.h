// The camera policy: how cameras are captured and encoded for one VM. Read from the document that
// a host sends; values out of range are clamped, and each correction has a sentence for the user.
// Called on the main thread; reentrant.
#ifndef LUMSAR_PEERS_SERVICE_POLICY_H
#define LUMSAR_PEERS_SERVICE_POLICY_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "service/camera_info.h"

namespace lumsar::service {

// For one kind of camera, or for all where the ids are not set.
struct PolicyRule {
  std::optional<std::uint16_t> vendorId;
  std::optional<std::uint16_t> productId;
  int maxWidth = 4000;
  int maxHeight = 4000;
  int quality = 50;      // JPEG quality, 0 to 100
  int intervalMs = 0;    // between frames; 0: the camera's own rate
  bool h264 = false;     // MJPG otherwise
  bool followVm = true;  // the rate follows what the VM takes
  std::vector<std::string> pixelFormats = {"MJPG", "YUYV"};  // of the camera, best first

  bool operator==(const PolicyRule&) const = default;
};

struct Policy {
  std::vector<PolicyRule> rules = {PolicyRule{}};
  std::string vmId;

  // The first rule made for this camera, else the first for all, else the built-in one.
  const PolicyRule& ruleFor(const CameraInfo& camera) const;
};

struct PolicyReading {
  std::optional<Policy> policy;
  std::string error;               // why there is none
  std::vector<std::string> notes;  // what was corrected
};

// `document` may end in zero bytes. `h264Available`: an encoder is installed.
PolicyReading readPolicy(std::string_view document, bool h264Available);

}  // namespace lumsar::service

#endif
