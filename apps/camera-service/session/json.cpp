// JSON of hosts: see json.h. Called on the main thread.
#include "session/json.h"

#include <QJsonDocument>

namespace lumsar::service {

JsonReading readJsonObject(std::string_view text) {
  while (!text.empty() && text.back() == '\0') text.remove_suffix(1);
  QJsonParseError error;
  const auto size = static_cast<int>(text.size());
  const QJsonDocument document =
      QJsonDocument::fromJson(QByteArray::fromRawData(text.data(), size), &error);
  if (error.error != QJsonParseError::NoError) {
    return {{}, "is not JSON: " + error.errorString().toStdString()};
  }
  if (!document.isObject()) return {{}, "is no JSON object"};
  return {document.object(), {}};
}

std::string compactJson(const QJsonObject& object) {
  return QJsonDocument(object).toJson(QJsonDocument::Compact).toStdString();
}

std::string textOrNumber(const QJsonValue& value) {
  if (value.isDouble()) return QString::number(value.toDouble(), 'g', 15).toStdString();
  return value.toString().toStdString();
}

QString qt(std::string_view text) {
  return QString::fromUtf8(text.data(), static_cast<int>(text.size()));
}

}  // namespace lumsar::service
