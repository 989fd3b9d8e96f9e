// VideoOutput: gives each camera a v4l2loopback device, which programs in the VM open as a webcam.
#pragma once

#include "outputs/v4l2/video_sink.h"

namespace lumsar::agent {

class VideoOutput : public SinkFactory {
 public:
  VideoOutput(std::unique_ptr<VideoSystem> system, std::vector<std::string> paths)
      : m_pool(std::move(system), std::move(paths)) {
    m_pool.warnOfUnusable();
  }

  std::unique_ptr<Sink> open(const protocol::Announcement& camera, int /*handle*/,
                             const std::string& /*label*/, std::function<void()> changed) override {
    return std::make_unique<VideoSink>(m_pool, camera, std::move(changed));
  }

 private:
  VideoPool m_pool;
};

}  // namespace lumsar::agent
