// Sharing out the video devices. Called on the channel's thread and by the sinks' threads.
// Thread-safe by the pool's own mutex.
#include "outputs/v4l2/video_output.h"

#include <algorithm>
#include <utility>

#include "app/log.h"
#include "outputs/v4l2/video_sink.h"

namespace lumsar::agent {

VideoPool::VideoPool(std::unique_ptr<VideoSystem> system, std::vector<std::string> paths)
    : m_system(std::move(system)), m_paths(std::move(paths)) {}

std::vector<std::string> VideoPool::candidates() {
  const bool automatic = std::ranges::find(m_paths, "auto") != m_paths.end();
  return automatic ? m_system->loopbackDevices() : m_paths;
}

std::optional<std::string> VideoPool::acquire(const std::string& cameraId,
                                              const std::set<std::string>& avoid) {
  const std::lock_guard lock(m_mutex);
  // A device that no other camera had is better than one that some program knows by its picture.
  enum Fitness { Another, Fresh, Own };
  std::optional<std::pair<Fitness, std::string>> best;
  for (const auto& path : candidates()) {
    if (m_used.contains(path) || avoid.contains(path)) continue;
    const auto owner = m_lastOwner.find(path);
    const Fitness fitness = owner == m_lastOwner.end()  ? Fresh
                            : owner->second == cameraId ? Own
                                                        : Another;
    if (!best || fitness > best->first) best = {fitness, path};
  }
  if (!best) return std::nullopt;
  m_used.insert(best->second);
  m_lastOwner[best->second] = cameraId;
  return best->second;
}

void VideoPool::release(const std::string& path) {
  const std::lock_guard lock(m_mutex);
  m_used.erase(path);
}

VideoOutput::VideoOutput(std::unique_ptr<VideoSystem> system, std::vector<std::string> paths)
    : m_pool(std::move(system), std::move(paths)) {}

std::unique_ptr<Sink> VideoOutput::open(const CameraInfo& camera, int /*handle*/,
                                        const std::string& /*label*/,
                                        std::function<void()> changed) {
  return std::make_unique<VideoSink>(m_pool, camera, std::move(changed));
}

}  // namespace lumsar::agent
