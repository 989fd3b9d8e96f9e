// JSON as it comes from and goes to hosts. Called on the main thread; reentrant.
#ifndef LUMSAR_CAMERA_SERVICE_SESSION_JSON_H
#define LUMSAR_CAMERA_SERVICE_SESSION_JSON_H

#include <QJsonObject>
#include <span>
#include <string>
#include <string_view>

namespace lumsar::service {

struct JsonReading {
  QJsonObject object;
  std::string error;  // "is not JSON: ..." and the like; empty when it was read
};

// Zero bytes at the end are taken off.
JsonReading readJsonObject(std::string_view text);

std::string compactJson(const QJsonObject& object);

// A string or a number as text, as people write ids and ports both ways; empty otherwise.
std::string textOrNumber(const QJsonValue& value);

QString qt(std::string_view text);

inline std::string_view asText(std::span<const unsigned char> bytes) {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

}  // namespace lumsar::service

#endif
