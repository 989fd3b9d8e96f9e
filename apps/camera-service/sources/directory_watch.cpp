#include "sources/directory_watch.h"

#include <sys/inotify.h>

#include <asio/buffer.hpp>
#include <cstring>
#include <filesystem>
#include <stdexcept>

#include "base/log.h"
#include "base/text/format.h"

namespace lumsar::service {
namespace {

namespace fs = std::filesystem;

// Hidden files and those that programs write before they give them their name.
bool isTemporary(const std::string& name) {
  return name.starts_with('.') || name.ends_with('~') || name.ends_with(".part") ||
         name.ends_with(".tmp");
}

// A link is complete at once; it is not written and closed.
bool isLink(const fs::path& path) {
  std::error_code error;
  return fs::is_symlink(path, error) || fs::hard_link_count(path, error) > 1;
}

}  // namespace

DirectoryWatch::DirectoryWatch(asio::io_context& io, std::string directory, Events events)
    : m_directory(std::move(directory)), m_events(std::move(events)), m_inotify(io) {
  m_inotify.assign(::inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
  constexpr std::uint32_t kWanted = IN_CLOSE_WRITE | IN_MOVED_TO | IN_CREATE | IN_DELETE |
                                    IN_MOVED_FROM | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;
  if (::inotify_add_watch(m_inotify.native_handle(), m_directory.c_str(), kWanted) < 0) {
    throw std::runtime_error(
        base::text("cannot watch the directory {}: {}", m_directory, base::systemError()));
  }
  read();
  scan();
}

void DirectoryWatch::read() {
  m_inotify.async_read_some(
      asio::buffer(m_buffer), [this](asio::error_code error, std::size_t size) {
        if (error) return;
        for (std::size_t at = 0; at + sizeof(inotify_event) <= size;) {
          inotify_event event;
          std::memcpy(&event, m_buffer.data() + at, sizeof event);
          at += sizeof event;
          const std::string name(m_buffer.data() + at, ::strnlen(m_buffer.data() + at, event.len));
          at += event.len;
          onEvent(event, name);
        }
        read();
      });
}

void DirectoryWatch::onEvent(const inotify_event& event, const std::string& name) {
  if ((event.mask & IN_Q_OVERFLOW) != 0) return scan();
  if ((event.mask & (IN_DELETE_SELF | IN_MOVE_SELF | IN_UNMOUNT)) != 0) {
    base::logWarning(
        "the watched directory {} has been removed; restart the service to watch it again",
        m_directory);
    while (!m_files.empty()) onDisappeared(*m_files.begin());
    return;
  }
  if (name.empty() || isTemporary(name)) return;
  if ((event.mask & (IN_DELETE | IN_MOVED_FROM)) != 0) return onDisappeared(name);
  if ((event.mask & IN_CREATE) != 0 && !isLink(fs::path(m_directory) / name)) return;
  onAppeared(name);
}

void DirectoryWatch::scan() {
  std::set<std::string> present;
  std::error_code error;
  for (const auto& entry : fs::directory_iterator(m_directory, error)) {
    const std::string name = entry.path().filename().string();
    if (!isTemporary(name)) present.insert(name);
  }
  const std::set<std::string> known = m_files;
  for (const std::string& name : known) {
    if (!present.contains(name)) onDisappeared(name);
  }
  for (const std::string& name : present) {
    if (!known.contains(name)) onAppeared(name);
  }
}

void DirectoryWatch::onAppeared(const std::string& name) {
  const fs::path path = fs::path(m_directory) / name;
  std::error_code error;
  if (!fs::is_regular_file(path, error)) return;
  m_files.insert(name);
  m_events.onFile(path.string());
}

void DirectoryWatch::onDisappeared(const std::string& name) {
  const std::string path = (fs::path(m_directory) / name).string();
  if (m_files.erase(name) > 0) m_events.onRemoved(path);
}

}  // namespace lumsar::service
