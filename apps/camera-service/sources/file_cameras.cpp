#include "sources/file_cameras.h"

#include <algorithm>
#include <asio/post.hpp>
#include <filesystem>

#include "base/text/utf8.h"

namespace lumsar::service {

FileCameras::~FileCameras() {
  m_probeThread.stop();  // files that still wait for their probe are skipped
  m_probeThread.join();
}

// Short, unless two directories have files of the same name.
const std::string& FileCameras::idOf(const std::string& path) {
  if (const auto known = m_ids.find(path); known != m_ids.end()) return known->second;
  const std::string brief =
      "file:" + base::escapeInvalid(std::filesystem::path(path).filename().string());
  const auto taken = [&](const auto& known) { return known.second == brief; };
  return m_ids[path] =
             std::ranges::any_of(m_ids, taken) ? "file:" + base::escapeInvalid(path) : brief;
}

void FileCameras::add(const std::string& path) {
  Entry& entry = m_files[path];
  m_cameras.unplug(idOf(path));
  entry.probe = std::make_shared<Probe>();
  asio::post(m_probeThread, [this, path, probe = std::weak_ptr(entry.probe)] {
    if (probe.expired()) return;
    const FileProbe found = probeFile(path);
    asio::post(m_io, [this, path, probe, found] {
      if (!probe.expired()) onProbed(path, found);
    });
  });
}

void FileCameras::onProbed(const std::string& path, const FileProbe& probe) {
  m_files[path].error = probe.error;
  if (!probe.error.empty()) return m_onUnreadable(idOf(path), probe.error);
  m_cameras.plug({idOf(path), base::escapeInvalid(std::filesystem::path(path).stem().string()),
                  probe.format, [path, probe] { return makeFileSource(path, probe); }});
}

void FileCameras::remove(const std::string& path) {
  const auto found = m_files.find(path);
  if (found == m_files.end()) return;
  m_cameras.unplug(idOf(path));
  m_files.erase(found);
}

std::map<std::string, std::string> FileCameras::unreadable() const {
  std::map<std::string, std::string> reasons;
  for (const auto& [path, entry] : m_files) {
    if (!entry.error.empty()) reasons[m_ids.at(path)] = entry.error;
  }
  return reasons;
}

}  // namespace lumsar::service
