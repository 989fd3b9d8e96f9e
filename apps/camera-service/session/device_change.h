// DeviceChange: what a host is told by a device-change message. Commands have no answer of their
// own, so refusals and failures travel this way too. Called on the io_context's thread.
//
//   {"change":"refused","camera":"test:Front","name":"Front","number":0,"vmId":"vm-7",
//    "reason":"..."}
#ifndef LUMSAR_CAMERA_SERVICE_SESSION_DEVICE_CHANGE_H
#define LUMSAR_CAMERA_SERVICE_SESSION_DEVICE_CHANGE_H

#include <QJsonObject>
#include <string>

#include "camera/camera_info.h"

namespace lumsar::service {

struct DeviceChange {
  const char* change = "";  // added, removed, refused, failed or policy
  std::string camera;       // its id, or what the command called it; empty when none is meant
  const Camera* known = nullptr;
  std::string vmId;
  std::string reason;
};

DeviceChange deviceChange(const char* change, const Camera& camera, const std::string& reason);

// Of a file that is there but no camera.
DeviceChange fileRefused(const std::string& id, const std::string& why);
// Of a camera that fails while it is shared.
DeviceChange cameraFailed(const Camera& camera, const std::string& why);

QJsonObject toJson(const DeviceChange& change);

}  // namespace lumsar::service

#endif
