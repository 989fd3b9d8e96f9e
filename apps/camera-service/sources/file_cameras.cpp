// FileCameras: see file_cameras.h. Runs on the io_context's thread, the probe excepted.
#include "sources/file_cameras.h"

#include <glib.h>

#include <algorithm>
#include <array>
#include <asio/post.hpp>
#include <filesystem>

namespace lumsar::service {

namespace {

// File names are any bytes, ids and names are text: what is none stands there as %XX.
std::string asUtf8(std::string_view bytes) {
  std::string text;
  for (;;) {
    const char* bad = nullptr;
    const auto size = static_cast<gssize>(bytes.size());
    const bool whole = g_utf8_validate(bytes.data(), size, &bad) != FALSE;
    const auto good = static_cast<std::size_t>(bad - bytes.data());
    text += bytes.substr(0, good);
    if (whole) return text;
    std::array<char, 4> escaped;
    g_snprintf(escaped.data(), escaped.size(), "%%%02X", static_cast<unsigned char>(*bad));
    text += escaped.data();
    bytes.remove_prefix(good + 1);
  }
}

}  // namespace

FileCameras::~FileCameras() {
  m_probeThread.stop();  // files that wait for their probe are left alone
  m_probeThread.join();
}

// Short, unless two folders have files of the same name.
const std::string& FileCameras::idOf(const std::string& path) {
  if (const auto known = m_ids.find(path); known != m_ids.end()) return known->second;
  const std::string brief = "file:" + asUtf8(std::filesystem::path(path).filename().string());
  const auto taken = [&](const auto& known) { return known.second == brief; };
  return m_ids[path] = std::ranges::any_of(m_ids, taken) ? "file:" + asUtf8(path) : brief;
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
  m_files[path].trouble = probe.error;
  if (!probe.error.empty()) return m_onUnreadable(idOf(path), probe.error);
  m_cameras.plug({idOf(path), asUtf8(std::filesystem::path(path).stem().string()), probe.format,
                  [path, probe] { return makeFileSource(path, probe); }});
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
    if (!entry.trouble.empty()) reasons[m_ids.at(path)] = entry.trouble;
  }
  return reasons;
}

}  // namespace lumsar::service
