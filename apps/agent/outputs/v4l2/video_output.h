// VideoOutput: gives each camera a v4l2loopback device, which programs in the VM open as a webcam.
// Called by Gallery and Camera on the channel's thread; each sink has a thread of its own.
#ifndef LUMSAR_AGENT_OUTPUTS_V4L2_VIDEO_OUTPUT_H
#define LUMSAR_AGENT_OUTPUTS_V4L2_VIDEO_OUTPUT_H

#include <map>
#include <mutex>
#include <optional>
#include <set>

#include "outputs/sink.h"
#include "outputs/v4l2/video_system.h"

namespace lumsar::agent {

// Which device belongs to which camera. Thread-safe.
class VideoPool {
 public:
  // `paths` may be "auto": all loopback devices that are there when one is needed.
  VideoPool(std::unique_ptr<VideoSystem> system, std::vector<std::string> paths);

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

class VideoOutput : public Output {
 public:
  VideoOutput(std::unique_ptr<VideoSystem> system, std::vector<std::string> paths);

  std::unique_ptr<Sink> open(const CameraInfo& camera, int handle, const std::string& label,
                             std::function<void()> changed) override;

 private:
  VideoPool m_pool;
};

}  // namespace lumsar::agent

#endif
