// DeviceChange: see device_change.h. Called on the io_context's thread.
#include "service/device_change.h"

#include "service/json.h"

namespace lumsar::service {

DeviceChange deviceChange(const char* change, const Camera& camera, const std::string& reason) {
  return {change, camera.info.id, &camera, {}, reason};
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
