#include "session/camera_list.h"

#include <QJsonArray>
#include <algorithm>

#include "base/text/format.h"
#include "base/text/table.h"
#include "json/json.h"
#include "session/change_text.h"

namespace lumsar::host {

namespace {

using json::shownAt, json::textAt;

constexpr std::size_t kListSize = std::size_t{64} * 1024;

bool isPresent(const QJsonObject& camera) {
  return camera[QLatin1String("present")].toBool(true);
}

base::TableRow describeCamera(std::size_t number, const QJsonObject& camera) {
  std::string state;
  const auto add = [&state](const char* word) {
    state += (state.empty() ? "" : ", ") + std::string(word);
  };
  if (!isPresent(camera)) add("unplugged");
  if (!camera[QLatin1String("sharedWith")].toArray().isEmpty()) add("shared");
  if (camera[QLatin1String("inUse")].toBool()) add("in use");
  return {std::to_string(number), shownAt(camera, "id"), shownAt(camera, "name"), state};
}

}  // namespace

ListReply askForList(const Plugin& plugin) {
  std::vector<char> output;
  int size = kListSize;
  int status = STATUS_OK;
  // Cameras that are plugged in between two calls may make it grow once more.
  while (status == STATUS_OK && size > static_cast<int>(output.size())) {
    output.assign(static_cast<std::size_t>(size), '\0');
    status = plugin.Ctrl(R"({"command":"list"})", output.data(), size);
  }
  if (status != STATUS_OK && status != STATUS_LIST_ERROR) return {status, {}};
  return {status, {output.data(), std::min(static_cast<std::size_t>(size), output.size())}};
}

CameraList readList(const std::string& text) {
  const QJsonObject document = json::readObject(text).object;
  CameraList list;
  std::vector<base::TableRow> rows{{"#", "ID", "NAME", "STATE"}};
  const QJsonArray cameras = document[QStringLiteral("cameras")].toArray();
  for (const auto& value : cameras) {
    const QJsonObject camera = value.toObject();
    rows.push_back(describeCamera(list.cameras.size(), camera));
    list.cameras.push_back({textAt(camera, "id"), textAt(camera, "name"), isPresent(camera),
                            camera[QLatin1String("sharedHere")].toBool(),
                            camera[QLatin1String("inUseHere")].toBool(),
                            camera[QLatin1String("framesHere")].toDouble()});
  }
  list.description = cameras.isEmpty() ? "  no cameras\n" : base::table(rows);
  const QJsonArray refusals = document[QStringLiteral("refusals")].toArray();
  for (const auto& value : refusals) {
    const QJsonObject refusal = value.toObject();
    const auto [kind, details] = describeChange(refusal);
    list.description += base::text("  {}{}\n", kind, details);
    const std::string camera = textAt(refusal, "camera");
    const std::string change = textAt(refusal, "change");
    if (change == "waiting") {
      list.awaited.push_back({camera, camera, false});
    } else if (!refusal[QLatin1String("state")].toBool()) {
      list.refusals.push_back(
          {change, camera, textAt(refusal, "name"), shownAt(refusal, "reason")});
    }
  }
  const QJsonArray controls = document[QStringLiteral("controls")].toArray();
  for (const auto& value : controls) {
    const QJsonObject control = value.toObject();
    list.controls.push_back({textAt(control, "camera"), control[QLatin1String("shared")].toBool()});
  }
  const QJsonArray notes = document[QStringLiteral("policyNotes")].toArray();
  for (const auto& note : notes) {
    list.policyNotes += base::text("  policy: {}\n", json::shown(note.toString().toStdString()));
  }
  list.description += list.policyNotes;
  list.description.pop_back();
  return list;
}

}  // namespace lumsar::host
