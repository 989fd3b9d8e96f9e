// Tests of device_watch.h and virtual_cameras.h: cameras that come and go. GStreamer's threads post
// to the test's io_context.
#include "service/device_watch.h"

#include <gtest/gtest.h>

#include <asio/io_context.hpp>
#include <map>

#include "service/synthetic.h"
#include "service/virtual_cameras.h"
#include "support.h"

namespace lumsar::test {
namespace {

using service::CameraInfo;

struct Watched {
  Watched()
      : watch(io, {[this](const CameraInfo& info) { present[info.id] = info; },
                   [this](const std::string& id) { present.erase(id); }}) {}
  template <class Condition>
  bool await(Condition condition) {
    return waitUntil([&] {
      io.restart();
      io.poll();
      return condition();
    });
  }
  bool awaitCamera(const std::string& id, bool there = true) {
    return await([&] { return present.contains(id) == there; });
  }

  asio::io_context io;
  std::map<std::string, CameraInfo> present;
  service::DeviceWatch watch;
};

class DeviceWatchTest : public ::testing::Test {
 protected:
  DeviceWatchTest() { gst_init(nullptr, nullptr); }
};

TEST_F(DeviceWatchTest, SeesCamerasFromBeforeAndAfterItsStart) {
  service::VirtualCameras cameras;
  cameras.plug(service::syntheticCamera("Early,640x480@15"));
  Watched watched;
  watched.watch.start();
  ASSERT_TRUE(watched.awaitCamera("test:Early"));
  const CameraInfo& early = watched.present["test:Early"];
  EXPECT_EQ(early.name, "Early");
  ASSERT_EQ(early.formats.size(), 1U);
  EXPECT_EQ(early.formats.front(), (service::CameraFormat{"I420", 640, 480, 15, 1}));
  cameras.plug(service::syntheticCamera("Late"));
  EXPECT_TRUE(watched.awaitCamera("test:Late"));
  EXPECT_TRUE(watched.present.contains("test:Early"));
}

TEST_F(DeviceWatchTest, SeesCamerasGo) {
  service::VirtualCameras cameras;
  Watched watched;
  watched.watch.start();
  cameras.plug(service::syntheticCamera("A"));
  ASSERT_TRUE(watched.awaitCamera("test:A"));
  const auto begin = std::chrono::steady_clock::now();
  cameras.unplug("test:A");
  EXPECT_TRUE(watched.awaitCamera("test:A", false));
  EXPECT_LT(std::chrono::steady_clock::now() - begin, milliseconds(500));
  cameras.plug(service::syntheticCamera("A"));
  EXPECT_TRUE(watched.awaitCamera("test:A"));
  cameras.unplug("test:unknown");
}

TEST_F(DeviceWatchTest, ADeviceMakesItsSource) {
  service::VirtualCameras cameras;
  Watched watched;
  cameras.plug(service::syntheticCamera("S,320x240"));
  watched.watch.start();
  ASSERT_TRUE(watched.awaitCamera("test:S"));
  GstElement* source = gst_device_create_element(watched.present["test:S"].device.get(), nullptr);
  ASSERT_NE(source, nullptr);
  gst_object_ref_sink(source);
  const service::GstPtr<GstElement> owned(source);
  const service::GstPtr<GstPad> pad(gst_element_get_static_pad(source, "src"));
  EXPECT_TRUE(pad);
}

}  // namespace
}  // namespace lumsar::test
