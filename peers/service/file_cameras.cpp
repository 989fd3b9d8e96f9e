// FileCameras: see file_cameras.h. Runs on the io_context's thread, the probe excepted.
#include "service/file_cameras.h"

#include <algorithm>
#include <asio/post.hpp>
#include <filesystem>

namespace lumsar::service {

FileCameras::~FileCameras() {
  m_probeThread.stop();  // files that wait for their probe are left alone
  m_probeThread.join();
}

// Short, unless two folders have files of the same name.
std::string FileCameras::newId(const std::string& path) const {
  const std::string brief = "file:" + std::filesystem::path(path).filename().string();
  const auto taken = [&](const auto& file) { return file.second.id == brief; };
  return std::ranges::any_of(m_files, taken) ? "file:" + path : brief;
}

void FileCameras::add(const std::string& path) {
  if (!m_files.contains(path)) m_files[path] = {newId(path)};
  Entry& entry = m_files[path];
  m_cameras.unplug(entry.id);
  entry.probe = ++m_lastProbe;
  asio::post(m_probeThread, [this, path, number = entry.probe] {
    FileProbe probe = probeFile(path);
    asio::post(m_io, [this, path, number, probe] { onProbed(path, number, probe); });
  });
}

void FileCameras::onProbed(const std::string& path, unsigned int number, const FileProbe& probe) {
  const auto found = m_files.find(path);
  if (found == m_files.end() || found->second.probe != number) return;
  if (!probe.error.empty()) return m_onUnreadable(found->second.id, probe.error);
  m_cameras.plug({found->second.id, std::filesystem::path(path).stem().string(), probe.format,
                  [path, probe] { return makeFileSource(path, probe); }});
}

void FileCameras::remove(const std::string& path) {
  const auto found = m_files.find(path);
  if (found == m_files.end()) return;
  m_cameras.unplug(found->second.id);
  m_files.erase(found);
}

}  // namespace lumsar::service
