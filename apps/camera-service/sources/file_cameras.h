// FileCameras: still images and video files as cameras. A file becomes a virtual camera once it has
// been probed, on its own thread.
#pragma once

#include <asio/io_context.hpp>
#include <asio/thread_pool.hpp>
#include <functional>
#include <map>
#include <memory>
#include <string>

#include "sources/file_probe.h"

namespace lumsar::service {

class FileCameras {
 public:
  using OnUnreadable = std::function<void(const std::string& id, const std::string& why)>;

  FileCameras(asio::io_context& io, VirtualCameras& cameras, OnUnreadable onUnreadable)
      : m_io(io), m_cameras(cameras), m_onUnreadable(std::move(onUnreadable)) {}
  ~FileCameras();
  FileCameras(const FileCameras&) = delete;
  FileCameras& operator=(const FileCameras&) = delete;

  // The file is there, or was written again: its camera is plugged in.
  void add(const std::string& path);
  void remove(const std::string& path);
  // Why files that are there cannot be cameras, by the ids that they would have.
  std::map<std::string, std::string> unreadable() const;

 private:
  // Expires when the file is removed or written again.
  struct Probe {};
  struct Entry {
    std::shared_ptr<Probe> probe;  // the latest
    std::string error;             // empty for one that can be read
  };

  const std::string& idOf(const std::string& path);
  void onProbed(const std::string& path, const FileProbe& probe);

  asio::io_context& m_io;
  VirtualCameras& m_cameras;
  const OnUnreadable m_onUnreadable;
  std::map<std::string, Entry> m_files;      // by path
  std::map<std::string, std::string> m_ids;  // by path; kept, so that a file keeps its id
  asio::thread_pool m_probeThread{1};
};

}  // namespace lumsar::service
