#include "cameras/choices.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <QJsonArray>
#include <array>
#include <cerrno>
#include <filesystem>
#include <system_error>
#include <utility>

#include "base/system/files.h"
#include "base/text/format.h"
#include "json/json.h"

namespace lumsar::host {

namespace {

namespace fs = std::filesystem;

using json::qt;

constexpr const char* kVms = "vms";
constexpr const char* kCameras = "cameras";

QJsonObject vmsOf(const QJsonObject& document) {
  return document[QLatin1String(kVms)].toObject();
}

// None, with errno set, when it cannot be read.
std::optional<std::string> contentOf(const std::string& path) {
  const base::UniqueFd file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (!file) return std::nullopt;
  std::string content;
  std::array<char, 4096> part{};
  while (true) {
    const ssize_t size = read(file.get(), part.data(), part.size());
    if (size < 0 && errno == EINTR) continue;
    if (size < 0) return std::nullopt;
    if (size == 0) return content;
    content.append(part.data(), static_cast<std::size_t>(size));
  }
}

// Held while the file is read and written: another viewer may do the same.
base::UniqueFd lockedDirectory(const fs::path& directory) {
  base::UniqueFd locked(open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (locked && flock(locked.get(), LOCK_EX) != 0) return base::UniqueFd();
  return locked;
}

}  // namespace

Choices::Choices(std::string file, std::string vm) : m_file(std::move(file)), m_vm(std::move(vm)) {
  if (!canRemember()) return;
  const base::UniqueFd lock = lockedDirectory(fs::path(m_file).parent_path());
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

// None, with errno set, when there is a file that can neither be read nor be set aside.
std::optional<QJsonObject> Choices::read() {
  const std::optional<std::string> content = contentOf(m_file);
  if (!content) return errno == ENOENT ? std::optional(QJsonObject()) : std::nullopt;
  json::Reading reading = json::readObject(*content);
  const QJsonValue vms = reading.object[QLatin1String(kVms)];
  if (reading.error.empty() && !vms.isUndefined() && !vms.isObject()) {
    reading.error = base::text("has \"{}\" that are not an object", kVms);
  }
  if (reading.error.empty()) return reading.object;
  const std::string aside = m_file + ".damaged";
  if (rename(m_file.c_str(), aside.c_str()) != 0) return std::nullopt;
  m_warning = base::text("{} {}; it is now {}", m_file, reading.error, aside);
  return QJsonObject();
}

bool Choices::remember(std::optional<Cameras> cameras) {
  if (cameras == m_cameras) return true;
  const fs::path directory = fs::path(m_file).parent_path();
  std::error_code ignored;
  fs::create_directories(directory, ignored);
  const base::UniqueFd lock = lockedDirectory(directory);
  if (!lock) return false;
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
  if (!base::replaceFile(m_file, base::bytesOf(json::compact(*document) + "\n"))) return false;
  m_cameras = std::move(cameras);
  return true;
}

}  // namespace lumsar::host
