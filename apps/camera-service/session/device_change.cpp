// DeviceChange: see device_change.h. Called on the io_context's thread.
#include "session/device_change.h"

#include "session/json.h"

namespace lumsar::service {

DeviceChange deviceChange(const char* change, const Camera& camera, const std::string& reason) {
  return {change, camera.info.id, &camera, {}, reason};
}

DeviceChange fileRefused(const std::string& id, const std::string& why) {
  return {"refused", id, nullptr, {}, "it is no picture or movie that can be read: " + why};
}

DeviceChange cameraFailed(const Camera& camera, const std::string& why) {
  return deviceChange("failed", camera, "the camera does not work: " + why + "; trying again");
}

QJsonObject toJson(const DeviceChange& change) {
  QJsonObject object = {{"change", change.change}, {"reason", qt(change.reason)}};
  if (!change.camera.empty()) object["camera"] = qt(change.camera);
  if (!change.vmId.empty()) object["vmId"] = qt(change.vmId);
  if (change.known != nullptr) {
    object["name"] = qt(change.known->info.name);
    object["number"] = static_cast<qint64>(change.known->number);
  }
  return object;
}

}  // namespace lumsar::service
