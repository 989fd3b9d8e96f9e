#include "driver/configuration.h"

#include <algorithm>
#include <array>
#include <numeric>

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

// How many characters have to be inserted, removed or replaced.
std::size_t distance(std::string_view one, std::string_view other) {
  std::vector<std::size_t> row(other.size() + 1);
  std::iota(row.begin(), row.end(), 0U);
  for (std::size_t i = 0; i < one.size(); ++i) {
    std::size_t diagonal = std::exchange(row[0], i + 1);
    for (std::size_t j = 0; j < other.size(); ++j) {
      const std::size_t replaced = diagonal + (one[i] == other[j] ? 0 : 1);
      diagonal = std::exchange(row[j + 1], std::min({replaced, row[j] + 1, row[j + 1] + 1}));
    }
  }
  return row.back();
}

// The policy's keys are the configuration's with "camera" in front.
std::string_view nearest(std::string_view key) {
  if (key.starts_with("camera")) key.remove_prefix(6);
  const auto from = [key](std::string_view known) { return distance(key, known); };
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

std::string notText(const std::string& key, const QJsonValue& value) {
  const std::string number = json::textOrNumber(value);
  return base::text("the configuration's \"{}\" is not a text, so it counts as empty; write {}",
                    key, number.empty() ? "it in quotation marks" : '"' + number + '"');
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
    }
  }
  return warnings;
}

}  // namespace lumsar::host
