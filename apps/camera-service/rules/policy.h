// The camera policy: how cameras are captured and encoded for one VM. Read from the document that
// a host sends; values out of range are clamped, and each correction has a sentence for the user.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "camera/camera_info.h"
#include "formats/policy_rule.h"

namespace lumsar::service {

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
