// DirectoryWatch: reports the files that appear in a directory and disappear from it.
#pragma once

#include <array>
#include <asio/io_context.hpp>
#include <asio/posix/stream_descriptor.hpp>
#include <functional>
#include <set>
#include <string>

struct inotify_event;

namespace lumsar::service {

class DirectoryWatch {
 public:
  struct Events {
    std::function<void(const std::string& path)> onFile;  // complete: written and closed
    std::function<void(const std::string& path)> onRemoved;
  };

  // Reports what is there, then what changes. Throws std::runtime_error with a text for the user.
  DirectoryWatch(asio::io_context& io, std::string directory, Events events);

 private:
  void read();
  void onEvent(const inotify_event& event, const std::string& name);
  void scan();
  void onAppeared(const std::string& name);
  void onDisappeared(const std::string& name);

  const std::string m_directory;
  const Events m_events;
  asio::posix::stream_descriptor m_inotify;
  std::set<std::string> m_files;
  alignas(8) std::array<char, 16384> m_buffer;
};

}  // namespace lumsar::service
