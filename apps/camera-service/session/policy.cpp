// The camera policy: see policy.h. Called on the main thread when a policy arrives.
#include "session/policy.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <algorithm>
#include <array>
#include <cmath>

#include "app/log.h"
#include "session/json.h"

namespace lumsar::service {
namespace {

constexpr int kMinSide = 16;
constexpr int kMaxSide = 8192;
constexpr int kMaxIntervalMs = 10000;
constexpr std::array kPixelFormats = {"MJPG", "YUYV", "YUY2", "UYVY", "NV12",
                                      "I420", "YV12", "RGB",  "BGR",  "GRAY8"};

using Notes = std::vector<std::string>;

int clamped(int value, int low, int high, const char* key, Notes& notes) {
  const int result = std::clamp(value, low, high);
  if (result != value) {
    notes.push_back(joined(key, " ", value, " is outside ", low, " to ", high, "; using ", result));
  }
  return result;
}

int readNumber(const QJsonObject& object, const char* key, int preset, int high, Notes& notes) {
  const QJsonValue value = object.value(key);
  if (value.isUndefined()) return preset;
  bool number = value.isDouble();
  double result = value.toDouble();
  if (value.isString()) result = value.toString().toDouble(&number);
  if (!number || std::isnan(result)) {
    notes.push_back(joined(key, " is no number; using ", preset));
    return preset;
  }
  const double bounded = std::clamp(result, -1e9, 1e9);
  return clamped(static_cast<int>(bounded), 0, high, key, notes);
}

// "W*H", both at least 1.
void readResolution(const QJsonObject& object, PolicyRule& rule, Notes& notes) {
  const char* key = "cameraMaxResolution";
  if (!object.contains(key)) return;
  const QString text = object.value(key).toString();
  const QStringList sides = text.split(QLatin1Char('*'));
  bool first = false;
  bool second = false;
  const int width = sides.value(0).toInt(&first);
  const int height = sides.value(1).toInt(&second);
  if (sides.size() != 2 || !first || !second || width < 1 || height < 1) {
    rule.maxWidth = 1920;
    rule.maxHeight = 1080;
    notes.push_back(joined(key, " '", text.toStdString(),
                           "' is not WIDTH*HEIGHT, such as 1280*1280; using 1920*1080"));
    return;
  }
  rule.maxWidth = clamped(width, kMinSide, kMaxSide, key, notes);
  rule.maxHeight = clamped(height, kMinSide, kMaxSide, key, notes);
}

void readEncoding(const QJsonObject& object, bool h264Available, PolicyRule& rule, Notes& notes) {
  const char* key = "cameraEncodeType";
  if (!object.contains(key)) return;
  const QString text = object.value(key).toString().toUpper();
  if (text == QLatin1String("MJPG")) return;
  if (text != QLatin1String("H264")) {
    notes.push_back(joined(key, " is neither MJPG nor H264; using MJPG"));
  } else if (!h264Available) {
    notes.push_back(joined(key, " H264 needs an H.264 encoder, and none is installed (x264enc, ",
                           "package gstreamer1.0-plugins-ugly); using MJPG"));
  } else {
    rule.h264 = true;
  }
}

void readSwitch(const QJsonObject& object, PolicyRule& rule, Notes& notes) {
  const char* key = "cameraEnableFRC";
  if (!object.contains(key)) return;
  const QString text = object.value(key).toString().toUpper();
  rule.followVm = text != QLatin1String("OFF");
  if (text != QLatin1String("ON") && text != QLatin1String("OFF")) {
    notes.push_back(joined(key, " is neither ON nor OFF; using ON"));
  }
}

void readPixelFormats(const QJsonObject& object, PolicyRule& rule, Notes& notes) {
  const char* key = "cameraPixelFormat";
  if (!object.contains(key)) return;
  std::vector<std::string> formats;
  for (const QJsonValue value : object.value(key).toArray()) {
    const std::string format = value.toString().toUpper().toStdString();
    if (std::ranges::find(kPixelFormats, format) != kPixelFormats.end()) {
      formats.push_back(format);
    } else {
      notes.push_back(joined(key, " '", format, "' is not known; left out"));
    }
  }
  if (!formats.empty()) {
    rule.pixelFormats = formats;
  } else {
    notes.push_back(joined(key, " names no known format; using MJPG, then YUYV"));
  }
}

// Empty text or none: any id. False when it is no id; a number is none, as its base is not clear.
bool readUsbId(const QJsonObject& object, const char* key, std::optional<std::uint16_t>& id,
               Notes& notes) {
  if (!object.contains(key)) return true;
  if (!object.value(key).isString()) {
    notes.push_back(joined(key, " is no text of four hexadecimal digits; the rule is left out"));
    return false;
  }
  const QString text = object.value(key).toString().trimmed();
  if (text.isEmpty()) return true;
  bool valid = false;
  const unsigned int value = text.toUInt(&valid, 16);
  if (valid && value <= 0xFFFF) {
    id = static_cast<std::uint16_t>(value);
    return true;
  }
  notes.push_back(joined(key, " '", text.toStdString(),
                         "' is no USB id of four hexadecimal digits; the rule is left out"));
  return false;
}

std::optional<PolicyRule> readRule(const QJsonObject& object, bool h264Available, Notes& notes) {
  PolicyRule rule;
  if (!readUsbId(object, "cameraVID", rule.vendorId, notes)) return std::nullopt;
  if (!readUsbId(object, "cameraPID", rule.productId, notes)) return std::nullopt;
  rule.quality = readNumber(object, "cameraQuality", rule.quality, 100, notes);
  rule.intervalMs = readNumber(object, "cameraFrameInternal", 0, kMaxIntervalMs, notes);
  readResolution(object, rule, notes);
  readEncoding(object, h264Available, rule, notes);
  readSwitch(object, rule, notes);
  readPixelFormats(object, rule, notes);
  return rule;
}

}  // namespace

const PolicyRule& Policy::ruleFor(const CameraInfo& camera) const {
  static const PolicyRule builtIn;
  const auto fits = [&camera](const PolicyRule& rule) {
    return (!rule.vendorId || *rule.vendorId == camera.vendorId) &&
           (!rule.productId || *rule.productId == camera.productId);
  };
  const auto isForSome = [](const PolicyRule& rule) { return rule.vendorId || rule.productId; };
  for (const bool forSome : {true, false}) {
    for (const PolicyRule& rule : rules) {
      if (isForSome(rule) == forSome && fits(rule)) return rule;
    }
  }
  return builtIn;
}

PolicyReading readPolicy(std::string_view document, bool h264Available) {
  PolicyReading reading;
  const JsonReading json = readJsonObject(document);
  if (!json.error.empty()) {
    reading.error = "the policy " + json.error;
    return reading;
  }
  if (!json.object.value("policy").isArray()) {
    reading.error = "the policy has no array \"policy\"";
    return reading;
  }
  Policy policy;
  policy.rules.clear();
  policy.vmId = json.object.value("vm_id").toString().toStdString();
  for (const QJsonValue value : json.object.value("policy").toArray()) {
    if (!value.isObject()) {
      reading.notes.emplace_back("an element of \"policy\" is no object; left out");
    } else if (const auto rule = readRule(value.toObject(), h264Available, reading.notes)) {
      policy.rules.push_back(*rule);
    }
  }
  reading.policy = std::move(policy);
  return reading;
}

}  // namespace lumsar::service
