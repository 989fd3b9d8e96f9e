#include "session/device_change.h"

#include "json/json.h"

namespace lumsar::service {
namespace {

DeviceChange ofCamera(const char* change, const Camera& camera, const std::string& reason) {
  return {change, camera.info.id, &camera, {}, reason};
}

}  // namespace

DeviceChange cameraAdded(const Camera& camera, const std::string& reason) {
  return ofCamera("added", camera, reason);
}

DeviceChange cameraRemoved(const Camera& camera, const std::string& reason) {
  return ofCamera("removed", camera, reason);
}

DeviceChange cameraRefused(const Camera& camera, const std::string& reason) {
  return ofCamera("refused", camera, reason);
}

DeviceChange cameraAwaited(const std::string& reference, const Camera* known) {
  const char* reason = known == nullptr
                           ? "there is no such camera yet; it is shared once it is plugged in"
                           : "it is unplugged; it is shared once it is plugged in again";
  return {"waiting", reference, known, {}, reason};
}

DeviceChange shareControlled(bool shared, const std::string& reference, const Camera* known) {
  return {shared ? "shared" : "unshared",
          reference,
          known,
          {},
          shared ? "shared by lumsar-cameras" : "unshared by lumsar-cameras"};
}

DeviceChange cameraFailed(const Camera& camera, const std::string& reason) {
  return ofCamera("failed", camera, reason);
}

DeviceChange captureFailed(const Camera& camera, const std::string& why) {
  return cameraFailed(camera, "the camera does not work: " + why + "; trying again");
}

DeviceChange commandRefused(const std::string& reason, const std::string& reference,
                            const Camera* known) {
  return {"refused", reference, known, {}, reason};
}

DeviceChange connectionFailed(const std::string& reference, const std::string& reason) {
  return {"failed", reference, nullptr, {}, reason};
}

DeviceChange fileRefused(const std::string& id, const std::string& why) {
  return commandRefused("it is not a readable still image or video file: " + why, id);
}

DeviceChange policyCorrected(const std::string& note) {
  return {"policy", {}, nullptr, {}, note};
}

QJsonObject toJson(const DeviceChange& change) {
  QJsonObject object = {{"change", change.change}, {"reason", json::qt(change.reason)}};
  if (!change.camera.empty()) object["camera"] = json::qt(change.camera);
  if (!change.vmId.empty()) object["vmId"] = json::qt(change.vmId);
  if (change.known != nullptr) {
    object["name"] = json::qt(change.known->info.name);
    object["number"] = static_cast<qint64>(change.known->number);
  }
  return object;
}

}  // namespace lumsar::service
