#include "rules/policy.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QStringList>
#include <algorithm>
#include <array>
#include <cmath>

#include "base/text/format.h"
#include "base/text/utf8.h"
#include "json/json.h"

namespace lumsar::service {
namespace {

constexpr int kMinSide = 16;
constexpr int kMaxSide = 8192;
constexpr int kMaxIntervalMs = 10000;
constexpr std::array kPixelFormats = {"MJPG", "YUYV", "YUY2", "UYVY", "NV12",
                                      "I420", "YV12", "RGB",  "BGR",  "GRAY8"};

using Notes = std::vector<std::string>;

// What is read or sent by the plug-in, which has more to say than this service needs.
constexpr std::array kKeys = {"cameraVID",           "cameraPID",           "cameraQuality",
                              "cameraFrameInternal", "cameraMaxResolution", "cameraEncodeType",
                              "cameraEnableFRC",     "cameraPixelFormat",   "cameraCodec",
                              "cameraFullSimulate"};
// Of what was read, in a note.
constexpr std::size_t kLongestShown = 100;

// As it stands in the document: a text in quotation marks, a number as it is.
std::string shown(const QJsonValue& value) {
  const std::string array =
      QJsonDocument(QJsonArray{value}).toJson(QJsonDocument::Compact).toStdString();
  return std::string(
      base::shortened(std::string_view(array).substr(1, array.size() - 2), kLongestShown));
}

// Reads one element of the array "policy"; a key that is missing keeps its default.
class RuleReader {
 public:
  RuleReader(const QJsonObject& object, Notes& notes) : m_object(object), m_notes(notes) {}

  // Nothing when it is not clear to which camera it applies.
  std::optional<PolicyRule> read(bool h264Available) {
    if (!readUsbId("cameraVID", m_rule.vendorId) || !readUsbId("cameraPID", m_rule.productId)) {
      return std::nullopt;
    }
    readNumber("cameraQuality", m_rule.quality, 100);
    readNumber("cameraFrameInternal", m_rule.intervalMs, kMaxIntervalMs);
    readResolution("cameraMaxResolution");
    readEncoding("cameraEncodeType", h264Available);
    readFollowVm("cameraEnableFRC");
    readPixelFormats("cameraPixelFormat");
    noteUnknownKeys();
    return m_rule;
  }

 private:
  template <class... Args>
  void note(fmt::format_string<Args...> format, Args&&... args) {
    m_notes.push_back(base::text(format, std::forward<Args>(args)...));
  }

  void noteUnknownKeys() {
    std::string unknown;
    for (const QString& key : m_object.keys()) {
      if (std::ranges::find(kKeys, key) != kKeys.end()) continue;
      if (!unknown.empty()) unknown += ", ";
      unknown += shown(key);
      if (unknown.size() > kLongestShown) break;
    }
    if (!unknown.empty()) note("keys that are not known and left out: {}", unknown);
  }

  // False when the rule must be left out. A number has no clear base.
  bool readUsbId(const char* key, std::optional<std::uint16_t>& id) {
    const QJsonValue value = m_object.value(QLatin1String(key));
    if (value.isUndefined()) return true;
    if (!value.isString()) {
      note("{} {} is not a string of four hexadecimal digits; the rule is left out", key,
           shown(value));
      return false;
    }
    const QString text = value.toString().trimmed();
    if (text.isEmpty()) return true;  // any camera
    bool valid = false;
    const unsigned int number = text.toUInt(&valid, 16);
    if (valid && number <= 0xFFFF) {
      id = static_cast<std::uint16_t>(number);
      return true;
    }
    note("{} {} is not a USB id of four hexadecimal digits; the rule is left out", key,
         shown(value));
    return false;
  }

  void readNumber(const char* key, int& result, int high) {
    const QJsonValue value = m_object.value(QLatin1String(key));
    if (value.isUndefined()) return;
    bool valid = value.isDouble();
    double number = value.toDouble();
    if (value.isString()) number = value.toString().toDouble(&valid);
    if (!valid || std::isnan(number)) {
      return note("{} {} is not a number; using {}", key, shown(value), result);
    }
    result = clamped(key, static_cast<int>(std::clamp(number, -1e9, 1e9)), 0, high);
  }

  int clamped(const char* key, int value, int low, int high) {
    const int result = std::clamp(value, low, high);
    if (result != value) {
      note("{} {} is outside {} to {}; using {}", key, value, low, high, result);
    }
    return result;
  }

  void readResolution(const char* key) {
    const QJsonValue value = m_object.value(QLatin1String(key));
    if (value.isUndefined()) return;
    const QStringList sides = value.toString().split(QLatin1Char('*'));
    const int width = sides.value(0).toInt();  // 0 when it is not a number
    const int height = sides.value(1).toInt();
    if (sides.size() == 2 && width >= 1 && height >= 1) {
      m_rule.maxWidth = clamped(key, width, kMinSide, kMaxSide);
      m_rule.maxHeight = clamped(key, height, kMinSide, kMaxSide);
      return;
    }
    m_rule.maxWidth = 1920;
    m_rule.maxHeight = 1080;
    note("{} {} is not WIDTH*HEIGHT, such as 1280*1280; using 1920*1080", key, shown(value));
  }

  void readEncoding(const char* key, bool h264Available) {
    const QJsonValue value = m_object.value(QLatin1String(key));
    if (value.isUndefined()) return;
    const QString text = value.toString().toUpper();
    const bool isAuto = text == QLatin1String("AUTO");
    if (text == QLatin1String("MJPG") || (isAuto && !h264Available)) return;
    if (isAuto) {
      m_rule.encoding = SentEncoding::Auto;
      return;
    }
    if (text != QLatin1String("H264")) {
      return note("{} {} is not MJPG, H264 or AUTO; using MJPG", key, shown(value));
    }
    if (h264Available) {
      m_rule.encoding = SentEncoding::H264;
      return;
    }
    note(
        "{} H264 needs an H.264 encoder, and none is installed (such as x264enc, package "
        "gstreamer1.0-plugins-ugly); using MJPG",
        key);
  }

  void readFollowVm(const char* key) {
    const QJsonValue value = m_object.value(QLatin1String(key));
    if (value.isUndefined()) return;
    const QString text = value.toString().toUpper();
    m_rule.followVm = text != QLatin1String("OFF");
    if (m_rule.followVm && text != QLatin1String("ON")) {
      note("{} {} is neither ON nor OFF; using ON", key, shown(value));
    }
  }

  void readPixelFormats(const char* key) {
    const QJsonValue value = m_object.value(QLatin1String(key));
    if (value.isUndefined()) return;
    std::vector<std::string> formats;
    for (const QJsonValue item : value.toArray()) {
      const std::string format = item.toString().toUpper().toStdString();
      if (std::ranges::find(kPixelFormats, format) != kPixelFormats.end()) {
        formats.push_back(format);
      } else {
        note("{} {} is not known; left out", key, shown(item));
      }
    }
    if (formats.empty()) return note("{} names no known format; using MJPG, then YUYV", key);
    m_rule.pixelFormats = formats;
  }

  const QJsonObject& m_object;
  Notes& m_notes;
  PolicyRule m_rule;
};

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
  const json::Reading json = json::readObject(document);
  if (!json.error.empty()) return {{}, "the policy " + json.error, {}};
  const QJsonValue rules = json.object.value("policy");
  if (!rules.isArray()) return {{}, "the policy lacks an array \"policy\"", {}};
  PolicyReading reading;
  Policy& policy = reading.policy.emplace();
  policy.rules.clear();
  policy.vmId = json::textAt(json.object, "vm_id");
  for (const QJsonValue value : rules.toArray()) {
    if (!value.isObject()) {
      reading.notes.emplace_back("an element of \"policy\" is not an object; left out");
      continue;
    }
    const QJsonObject object = value.toObject();
    if (const auto rule = RuleReader(object, reading.notes).read(h264Available)) {
      policy.rules.push_back(*rule);
    }
  }
  return reading;
}

}  // namespace lumsar::service
