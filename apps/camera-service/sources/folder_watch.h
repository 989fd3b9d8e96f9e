// FolderWatch: tells which files appear in a folder and vanish from it. Bound to the io_context's
// thread, where its events are called.
#ifndef LUMSAR_CAMERA_SERVICE_SOURCES_FOLDER_WATCH_H
#define LUMSAR_CAMERA_SERVICE_SOURCES_FOLDER_WATCH_H

#include <array>
#include <asio/io_context.hpp>
#include <asio/posix/stream_descriptor.hpp>
#include <functional>
#include <set>
#include <string>

struct inotify_event;

namespace lumsar::service {

class FolderWatch {
 public:
  struct Events {
    std::function<void(const std::string& path)> onFile;  // complete: written and closed
    std::function<void(const std::string& path)> onGone;
  };

  // Reports what is there, then changes. Throws std::runtime_error with a text for the user.
  FolderWatch(asio::io_context& io, std::string folder, Events events);

 private:
  void read();
  void onEvent(const inotify_event& event, const std::string& name);
  void scan();
  void appeared(const std::string& name);
  void vanished(const std::string& name);

  const std::string m_folder;
  const Events m_events;
  asio::posix::stream_descriptor m_inotify;
  std::set<std::string> m_files;
  alignas(8) std::array<char, 16384> m_buffer;
};

}  // namespace lumsar::service

#endif
