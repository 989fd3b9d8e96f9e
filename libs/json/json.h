// Qt's JSON with the strings of the standard library.
#pragma once

#include <QJsonObject>
#include <string>
#include <string_view>

namespace lumsar::json {

struct Reading {
  QJsonObject object;
  std::string error;  // "is not JSON: ..." and the like; empty when it was read
};

// Zero bytes at the end are ignored.
Reading readObject(std::string_view text);
// Throws Failure when the file cannot be read or does not hold a JSON object.
QJsonObject readFile(const std::string& path);

std::string compact(const QJsonObject& object);
// A string or a number as text, as people write ids and ports both ways; empty otherwise.
std::string textOrNumber(const QJsonValue& value);
std::string textAt(const QJsonObject& object, const char* key);
// For people: no text may look like another line, and none is endless.
std::string shown(const std::string& text);
std::string shownAt(const QJsonObject& object, const char* key);
QString qt(std::string_view text);

}  // namespace lumsar::json
