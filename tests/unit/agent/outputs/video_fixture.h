// A VideoOutput on fake devices.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <optional>

#include "outputs/v4l2/video_output.h"
#include "support/eventually.h"
#include "unit/agent/outputs/fake_video.h"

namespace lumsar::test {

class VideoSinkTest : public testing::Test {
 protected:
  void nodes(std::initializer_list<const char*> paths) {
    for (const char* path : paths) video.nodes[path];
    output.emplace(std::make_unique<FakeVideoSystem>(video), std::vector<std::string>{"auto"},
                   format);
  }
  std::unique_ptr<Sink> open(const std::string& id, std::uint16_t width = 640,
                             std::uint16_t height = 480, std::uint32_t encoding = kEncodingMjpg) {
    const Bytes body = announcedBody(id, id, encoding, width, height);
    return output->open(protocol::readAnnouncement({.camera = 1}, body).value(), 1, id,
                        [this] { ++changes; });
  }
  // A camera whose device a program has open.
  std::unique_ptr<Sink> openWithConsumer(std::uint16_t width = 640, std::uint16_t height = 480) {
    nodes({"/dev/video0"});
    auto sink = open("front", width, height);
    EXPECT_TRUE(deviceIs(*sink, "/dev/video0"));
    video.setReaders("/dev/video0", 1);
    EXPECT_TRUE(eventually([&] { return sink->hasConsumer(); }));
    return sink;
  }
  static FramePtr frame(const Bytes& jpeg, std::uint16_t width = 640, std::uint16_t height = 480) {
    auto frame = std::make_shared<Frame>();
    frame->format = {0, width, height, kEncodingMjpg, 1};
    frame->data = jpeg;
    return frame;
  }
  bool deviceIs(const Sink& sink, const std::string& path) {
    return eventually([&] { return sink.report().device == path; });
  }
  auto written(const std::string& path) {
    return video.ask([&](auto& all) { return all[path].written; });
  }

  DeviceFormat format = DeviceFormat::Auto;
  FakeVideo video;
  std::atomic<int> changes{0};
  std::optional<VideoOutput> output;
};

}  // namespace lumsar::test
