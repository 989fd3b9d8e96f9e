// Gallery: makes the cameras of all connections with their sinks, and keeps those that have been
// removed until their sinks have finished.
#pragma once

#include <chrono>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "session/camera.h"

namespace lumsar::agent {

class Gallery {
 public:
  // What the frames of all cameras may hold; a single frame always fits.
  static constexpr std::size_t kMaxFrameBytes = std::size_t{256} << 20U;

  // `changed` is called from any thread when a sink gets its first consumer or loses the last.
  Gallery(std::vector<std::unique_ptr<SinkFactory>> outputs, std::function<void()> changed,
          std::size_t maxFrameBytes = kMaxFrameBytes);

  // Which its outputs can show, best first.
  std::vector<std::uint32_t> encodings() const;
  std::unique_ptr<Camera> open(protocol::Announcement info, Camera::Ask ask);
  void retire(std::unique_ptr<Camera> camera, bool tellService);
  // Destroys sinks that have finished.
  void update();
  // Whether there are sinks that have not.
  bool finishing() const { return !m_retired.empty(); }
  // Waits until everything is written. False, and logged, when sinks have not finished by the
  // timeout: these cannot be destroyed.
  bool finish(std::chrono::milliseconds timeout);

  // Of the cameras that have been removed, oldest first; only the latest ones are kept.
  std::vector<CameraStatus> removed() const;

 private:
  void remember(const Camera& camera);

  std::vector<std::unique_ptr<SinkFactory>> m_outputs;
  std::function<void()> m_changed;
  FrameBudget m_budget;
  std::vector<std::unique_ptr<Camera>> m_retired;
  std::deque<CameraStatus> m_removed;
  std::map<std::string, int> m_labels;  // how often each has been used
  int m_lastHandle = 0;
};

}  // namespace lumsar::agent
