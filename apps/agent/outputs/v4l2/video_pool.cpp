#include "outputs/v4l2/video_pool.h"

#include <algorithm>
#include <utility>

#include "base/log.h"

namespace lumsar::agent {

VideoPool::VideoPool(std::unique_ptr<VideoSystem> system, std::vector<std::string> paths)
    : m_system(std::move(system)), m_paths(std::move(paths)) {}

std::vector<std::string> VideoPool::candidates() {
  const bool automatic = std::ranges::find(m_paths, "auto") != m_paths.end();
  return automatic ? m_system->loopbackDevices() : m_paths;
}

void VideoPool::warnOfUnusable() {
  const std::vector<std::string> paths = candidates();
  if (paths.empty()) {
    base::logWarning(
        "there is no v4l2loopback device yet that this user may write to; load the module with one "
        "for each camera: modprobe v4l2loopback devices=2 exclusive_caps=1,1");
  }
  for (const std::string& path : paths) {
    std::string why;
    if (m_system->open(path, why)) continue;
    base::logWarning(
        "{} cannot be used yet: {}; load the module v4l2loopback or name another device", path,
        why);
  }
}

std::optional<std::string> VideoPool::acquire(const std::string& cameraId,
                                              const std::set<std::string>& avoid) {
  const std::lock_guard lock(m_mutex);
  // Another camera's device is the last resort: programs may remember it by what it showed.
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

}  // namespace lumsar::agent
