// DeviceChange: what a host is told by a device-change message. Commands have no answer of their
// own, so refusals and failures travel this way too.
//
//   {"change":"refused","camera":"test:Front","name":"Front","number":0,"vmId":"vm-7",
//    "reason":"..."}
#pragma once

#include <QJsonObject>
#include <string>

#include "camera/camera_info.h"

namespace lumsar::service {

struct DeviceChange {
  // added, removed, shared, unshared, refused, waiting, failed or policy
  const char* change = "";
  std::string camera;  // its id, or what the command called it; empty when none is named
  const Camera* known = nullptr;
  std::string vmId;
  std::string reason;
};

DeviceChange cameraAdded(const Camera& camera, const std::string& reason);
DeviceChange cameraRemoved(const Camera& camera, const std::string& reason);
DeviceChange cameraRefused(const Camera& camera, const std::string& reason);
// Its share waits until it is there. `known` is one that has been there before.
DeviceChange cameraAwaited(const std::string& reference, const Camera* known);
// By somebody else than its host; without a `reference` no camera is shared any more.
DeviceChange shareControlled(bool shared, const std::string& reference, const Camera* known);
DeviceChange cameraFailed(const Camera& camera, const std::string& reason);
// Its device does not deliver frames while it is shared.
DeviceChange captureFailed(const Camera& camera, const std::string& why);
// A document that cannot be carried out. `reference` is what it calls the camera, if it names one.
DeviceChange commandRefused(const std::string& reason, const std::string& reference = {},
                            const Camera* known = nullptr);
DeviceChange connectionFailed(const std::string& reference, const std::string& reason);
// A file that is there but cannot be a camera.
DeviceChange fileRefused(const std::string& id, const std::string& why);
DeviceChange policyCorrected(const std::string& note);

QJsonObject toJson(const DeviceChange& change);

}  // namespace lumsar::service
