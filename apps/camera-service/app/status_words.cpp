#include "app/status_words.h"

#include "json/json.h"

namespace lumsar::service {

std::string field(const QJsonObject& object, const char* key) {
  const QJsonValue value = object.value(QLatin1String(key));
  if (value.isBool()) return value.toBool() ? "yes" : "no";
  return json::shown(json::textOrNumber(value));
}

const char* stateOf(const QJsonObject& camera) {
  if (!camera.value("present").toBool()) return "unplugged";
  return camera.value("running").toBool() ? "on" : "off";
}

}  // namespace lumsar::service
