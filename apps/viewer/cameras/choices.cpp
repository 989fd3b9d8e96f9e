#include "cameras/choices.h"

#include <QJsonArray>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>
#include <utility>

#include "base/system/files.h"
#include "base/text/format.h"
#include "json/json.h"

namespace lumsar::viewer {

namespace {

namespace fs = std::filesystem;

using json::qt;

constexpr const char* kVms = "vms";
constexpr const char* kCameras = "cameras";

QJsonObject vmsOf(const QJsonObject& document) {
  return document[QLatin1String(kVms)].toObject();
}

}  // namespace

Choices::Choices(std::string file, std::string vm) : m_file(std::move(file)), m_vm(std::move(vm)) {
  const std::optional<QJsonObject> document = read();
  if (!document) {
    m_warning = base::text("cannot read {}: {}", m_file, base::systemError());
    return;
  }
  const QJsonValue entry = vmsOf(*document)[qt(m_vm)];
  if (!entry.isObject()) return;
  m_cameras.emplace();
  const QJsonArray ids = entry.toObject()[QLatin1String(kCameras)].toArray();
  for (const auto& id : ids) m_cameras->push_back(id.toString().toStdString());
}

// None, with errno set, when there is a file that cannot be read.
std::optional<QJsonObject> Choices::read() {
  std::ifstream file(m_file, std::ios::binary);
  if (!file) return errno == ENOENT ? std::optional(QJsonObject()) : std::nullopt;
  const std::string content(std::istreambuf_iterator<char>(file), {});
  const json::Reading reading = json::readObject(content);
  if (reading.error.empty()) return reading.object;
  const std::string aside = m_file + ".damaged";
  std::error_code ignored;
  fs::rename(m_file, aside, ignored);
  m_warning = base::text("{} {}; it is now {}", m_file, reading.error, aside);
  return QJsonObject();
}

bool Choices::remember(std::optional<Cameras> cameras) {
  if (cameras == m_cameras) return true;
  std::optional<QJsonObject> document = read();
  if (!document) return false;
  QJsonObject vms = vmsOf(*document);
  if (cameras) {
    QJsonArray ids;
    for (const std::string& id : *cameras) ids.append(qt(id));
    vms[qt(m_vm)] = QJsonObject{{QLatin1String(kCameras), ids}};
  } else {
    vms.remove(qt(m_vm));
  }
  (*document)[QLatin1String(kVms)] = vms;
  std::error_code ignored;
  fs::create_directories(fs::path(m_file).parent_path(), ignored);
  if (!base::replaceFile(m_file, base::bytesOf(json::compact(*document) + "\n"))) return false;
  m_cameras = std::move(cameras);
  return true;
}

}  // namespace lumsar::viewer
