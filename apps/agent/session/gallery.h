// Gallery: all outputs, and the cameras that are gone but whose sinks still finish.
// Owned by Program, used by every CameraTable. Bound to the channel's thread.
#ifndef LUMSAR_AGENT_SESSION_GALLERY_H
#define LUMSAR_AGENT_SESSION_GALLERY_H

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
  // `changed` is called from any thread when a sink begins or ceases to want pictures.
  Gallery(std::vector<std::unique_ptr<Output>> outputs, std::function<void()> changed);

  std::unique_ptr<Camera> open(CameraInfo info, Camera::Ask ask);
  void retire(std::unique_ptr<Camera> camera, bool tellService);
  // Lets go of sinks that have finished.
  void update();
  // Waits for all sinks, so that everything is written; gives up those that take longer than
  // `limit`. False, and said in the log, when there are any: such a sink cannot be destroyed.
  bool finish(std::chrono::milliseconds limit);

  // Of the cameras that are gone, oldest first; only the last ones are kept.
  std::vector<CameraStatus> gone() const;

 private:
  void remember(const Camera& camera);

  std::vector<std::unique_ptr<Output>> m_outputs;
  std::function<void()> m_changed;
  std::vector<std::unique_ptr<Camera>> m_retired;
  std::deque<CameraStatus> m_gone;
  std::map<std::string, int> m_labels;  // how often each was given away
  int m_lastHandle = 0;
};

}  // namespace lumsar::agent

#endif
