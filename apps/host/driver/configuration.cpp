#include "driver/configuration.h"

#include <algorithm>
#include <array>

#include "base/text/distance.h"
#include "base/text/format.h"
#include "base/text/utf8.h"
#include "json/json.h"

namespace lumsar::host {
namespace {

constexpr std::array<std::string_view, 8> kKeys{"ipc_name",  "relative_path", "frame_interval",
                                                "max_width", "quality",       "encode_type",
                                                "codec",     "enable_FRC"};
// So many wrong characters of a key are taken for mistyped.
constexpr std::size_t kMostMistyped = 4;

// The policy's keys are the configuration's with "camera" in front.
std::string_view nearest(std::string_view key) {
  if (key.starts_with("camera")) key.remove_prefix(6);
  const auto from = [key](std::string_view known) { return base::distance(key, known); };
  const std::string_view best = *std::ranges::min_element(kKeys, {}, from);
  return from(best) <= std::min(kMostMistyped, best.size() / 2) ? best : std::string_view();
}

std::string unknown(std::string_view key) {
  const std::string shown = base::clean(key);
  const std::string_view meant = nearest(shown);
  if (!meant.empty()) {
    return base::text("the configuration's key \"{}\" is not known; did you mean \"{}\"?", shown,
                      meant);
  }
  std::string known;
  for (const std::string_view one : kKeys) known += (known.empty() ? "" : ", ") + std::string(one);
  return base::text("the configuration's key \"{}\" is not known; expected {}", shown, known);
}

// What the camera service makes of a key's text that is not a number; nothing where it may be any.
const char* withoutNumber(std::string_view key) {
  if (key == "quality" || key == "frame_interval") return "0";
  return key == "max_width" ? "1920*1080" : nullptr;
}

std::string notText(const std::string& key, const QJsonValue& value) {
  const std::string number = json::textOrNumber(value);
  const char* read = withoutNumber(key);
  return base::text("the configuration's \"{}\" is not a text, so it counts as {}; write {}", key,
                    read != nullptr ? read : "empty",
                    number.empty() ? "it in quotation marks" : '"' + number + '"');
}

// The plug-in's own way of reading a number.
bool isNumber(const QString& text) {
  bool valid = false;
  static_cast<void>(text.toInt(&valid));
  return valid;
}

std::string notNumber(const std::string& key, const std::string& value) {
  return base::text(
      "the configuration's \"{}\" is \"{}\", which is not a whole number, so it counts as {}", key,
      base::clean(value), withoutNumber(key));
}

}  // namespace

std::vector<std::string> configurationWarnings(const QJsonObject& configuration) {
  std::vector<std::string> warnings;
  for (auto item = configuration.begin(); item != configuration.end(); ++item) {
    const std::string key = item.key().toStdString();
    if (std::ranges::find(kKeys, key) == kKeys.end()) {
      warnings.push_back(unknown(key));
    } else if (!item->isString()) {
      warnings.push_back(notText(key, *item));
    } else if (withoutNumber(key) != nullptr && !isNumber(item->toString())) {
      warnings.push_back(notNumber(key, item->toString().toStdString()));
    }
  }
  return warnings;
}

}  // namespace lumsar::host
