// VideoPool: which v4l2loopback device belongs to which camera. Thread-safe.
#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "outputs/v4l2/video_system.h"

namespace lumsar::agent {

class VideoPool {
 public:
  // `paths` may contain "auto": all loopback devices that exist when one is needed.
  VideoPool(std::unique_ptr<VideoSystem> system, std::vector<std::string> paths);

  // Logs what is missing or cannot be used now. It may come later, so this is no error.
  void warnOfUnusable();

  // The device that this camera had before, or a free one that is not in `avoid`.
  std::optional<std::string> acquire(const std::string& cameraId,
                                     const std::set<std::string>& avoid);
  void release(const std::string& path);
  VideoSystem& system() { return *m_system; }

 private:
  std::vector<std::string> candidates();

  std::unique_ptr<VideoSystem> m_system;
  const std::vector<std::string> m_paths;
  std::mutex m_mutex;
  std::set<std::string> m_used;
  std::map<std::string, std::string> m_lastOwner;  // path -> camera id
};

}  // namespace lumsar::agent
