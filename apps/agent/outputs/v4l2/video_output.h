// VideoOutput: gives each camera a v4l2loopback device, which programs in the VM open as a webcam.
#pragma once

#include "outputs/v4l2/video_sink.h"

namespace lumsar::agent {

class VideoOutput : public SinkFactory {
 public:
  VideoOutput(std::unique_ptr<VideoSystem> system, std::vector<std::string> paths,
              DeviceFormat format)
      : m_pool(std::move(system), std::move(paths)), m_format(format) {
    m_pool.warnOfUnusable();
  }

  std::optional<bool> showsH264() const override {
    return Decoder::isUsable() && m_format != DeviceFormat::Camera;
  }
  std::unique_ptr<Sink> open(const protocol::Announcement& camera, int /*handle*/,
                             const std::string& /*label*/, std::function<void()> changed) override {
    return std::make_unique<VideoSink>(m_pool, m_format, camera, std::move(changed));
  }

 private:
  VideoPool m_pool;
  const DeviceFormat m_format;
};

}  // namespace lumsar::agent
