#include "json/json.h"

#include <QJsonDocument>
#include <cerrno>
#include <fstream>
#include <iterator>

#include "base/errors.h"
#include "base/text/format.h"
#include "base/text/utf8.h"

namespace lumsar::json {
namespace {

constexpr std::size_t kLongestField = 4096;  // a file's id may hold its whole path

}  // namespace

Reading readObject(std::string_view text) {
  while (!text.empty() && text.back() == '\0') text.remove_suffix(1);
  QJsonParseError error;
  const auto size = static_cast<int>(text.size());
  const QJsonDocument document =
      QJsonDocument::fromJson(QByteArray::fromRawData(text.data(), size), &error);
  if (error.error != QJsonParseError::NoError) {
    return {{}, "is not JSON: " + error.errorString().toStdString()};
  }
  if (!document.isObject()) return {{}, "is not a JSON object"};
  return {document.object(), {}};
}

QJsonObject readFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  const std::string content(std::istreambuf_iterator<char>(file), {});
  if (!file) throw base::Failure(base::text("cannot read {}: {}", path, base::systemError()));
  const Reading reading = readObject(content);
  if (!reading.error.empty()) throw base::Failure(base::text("{} {}", path, reading.error));
  return reading.object;
}

std::string compact(const QJsonObject& object) {
  return QJsonDocument(object).toJson(QJsonDocument::Compact).toStdString();
}

std::string textOrNumber(const QJsonValue& value) {
  if (value.isDouble()) return QString::number(value.toDouble(), 'g', 15).toStdString();
  return value.toString().toStdString();
}

std::string textAt(const QJsonObject& object, const char* key) {
  return object[QLatin1String(key)].toString().toStdString();
}

std::string shown(const std::string& text) {
  return base::clean(text, kLongestField);
}

std::string shownAt(const QJsonObject& object, const char* key) {
  return shown(textAt(object, key));
}

QString qt(std::string_view text) {
  return QString::fromUtf8(text.data(), static_cast<int>(text.size()));
}

}  // namespace lumsar::json
