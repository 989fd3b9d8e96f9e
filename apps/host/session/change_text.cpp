#include "session/change_text.h"

#include <algorithm>
#include <array>
#include <span>
#include <string_view>

#include "base/text/format.h"
#include "json/json.h"

namespace lumsar::host {
namespace {

using json::shownAt;

constexpr std::array<std::string_view, 5> kOfCameras = {"added", "removed", "waiting", "shared",
                                                        "unshared"};
constexpr std::array<std::string_view, 3> kOfFailures = {"refused", "failed", "policy"};

bool isOneOf(std::span<const std::string_view> kinds, const std::string& kind) {
  return std::ranges::find(kinds, kind) != kinds.end();
}

std::string cameraOf(const QJsonObject& change) {
  const std::string id = shownAt(change, "camera");
  const std::string name = shownAt(change, "name");
  return name.empty() || name == id ? id : base::text("{} ({})", name, id);
}

}  // namespace

ChangeLine describeChange(const QJsonObject& change) {
  const std::string camera = cameraOf(change);
  const std::string reason = shownAt(change, "reason");
  const std::string kind = shownAt(change, "change");
  if (isOneOf(kOfCameras, kind) && camera.empty()) return {"all cameras: ", reason};
  if (isOneOf(kOfCameras, kind)) return {"camera ", base::text("{}: {}", camera, reason)};
  if (camera.empty()) return {kind + ": ", reason};
  return {kind + ": ", base::text("camera {}: {}", camera, reason)};
}

ChangeLine describeChange(const std::string& data) {
  const QJsonObject change = json::readObject(data).object;
  const std::string kind = json::textAt(change, "change");
  if (isOneOf(kOfCameras, kind) || isOneOf(kOfFailures, kind)) return describeChange(change);
  return {"device change: ", data};
}

bool isControl(const std::string& data) {
  const std::string kind = json::textAt(json::readObject(data).object, "change");
  return kind == "shared" || kind == "unshared";
}

}  // namespace lumsar::host
