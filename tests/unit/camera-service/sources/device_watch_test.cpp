// Tests of device_watch.h and virtual_cameras.h: cameras that come and go. GStreamer's threads post
// to the test's io_context.
#include "sources/device_watch.h"

#include <gtest/gtest.h>

#include <asio/io_context.hpp>
#include <map>

#include "sources/synthetic.h"
#include "sources/virtual_cameras.h"
#include "support/eventually.h"
#include "support/temporary_directory.h"

namespace lumsar::test {
namespace {

using service::CameraInfo;

struct Watched {
  Watched()
      : watch(io, {[this](const CameraInfo& info) { present[info.id] = info; },
                   [this](const std::string& id) { present.erase(id); }}) {}
  template <class Condition>
  bool await(Condition condition) {
    return eventuallyIn(io, condition);
  }
  bool awaitCamera(const std::string& id, bool there = true) {
    return await([&] { return present.contains(id) == there; });
  }

  asio::io_context io;
  std::map<std::string, CameraInfo> present;
  service::DeviceWatch watch;
};

// A device that a provider of GStreamer's might report, with these properties.
service::GstPtr<GstDevice> deviceWith(const char* name, const char* properties) {
  static const GType type = [] {
    GTypeQuery parent;
    g_type_query(GST_TYPE_DEVICE, &parent);
    return g_type_register_static_simple(GST_TYPE_DEVICE, "LumsarTestDevice", parent.class_size,
                                         nullptr, parent.instance_size, nullptr, GTypeFlags{});
  }();
  const service::GstPtr<GstCaps> caps(gst_caps_from_string("image/jpeg,width=640,height=480"));
  const service::GstPtr<GstStructure> structure(gst_structure_from_string(properties, nullptr));
  auto* device = static_cast<GstDevice*>(g_object_new(type, "display-name", name, "device-class",
                                                      "Video/Source", "caps", caps.get(),
                                                      "properties", structure.get(), nullptr));
  gst_object_ref_sink(device);
  return service::GstPtr<GstDevice>(device);
}

std::string idOf(const std::string& properties) {
  const auto device = deviceWith("Webcam", properties.c_str());
  return service::describeDevice(device.get()).id;
}

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
  EXPECT_LT(std::chrono::steady_clock::now() - begin, kAtOnce);
  cameras.plug(service::syntheticCamera("A"));
  EXPECT_TRUE(watched.awaitCamera("test:A"));
  cameras.unplug("test:unknown");
}

TEST_F(DeviceWatchTest, ADeviceThatTwoProvidersSeeIsOneCamera) {
  service::VirtualCameras cameras;
  Watched watched;
  watched.watch.start();
  const service::GstPtr<GstDeviceProvider> provider(
      gst_device_provider_factory_get_by_name("lumsarvirtualcameras"));
  const auto again = deviceWith("Again", "p,object.path=\"v4l2:/dev/video0\"");
  const auto other = deviceWith("Other", "p,object.path=\"screen:1\",device.path=\"o\"");
  gst_device_provider_device_add(provider.get(), again.get());
  gst_device_provider_device_add(provider.get(), other.get());
  EXPECT_TRUE(watched.awaitCamera("o"));
  EXPECT_FALSE(watched.present.contains("Again"));
  gst_device_provider_device_remove(provider.get(), again.get());
  gst_device_provider_device_remove(provider.get(), other.get());
  EXPECT_TRUE(watched.awaitCamera("o", false));
}

TEST_F(DeviceWatchTest, AWebcamIsKnownByItsPlace) {
  EXPECT_EQ(idOf("p,device.bus=usb,device.bus_path=\"pci-0000:00:14.0-usb-0:5:1.0\","
                 "device.path=\"/dev/video0\""),
            "pci-0000:00:14.0-usb-0:5:1.0");
  EXPECT_EQ(idOf("p,device.bus_path=\"platform-vivid.0\",device.path=\"/dev/video4\""),
            "/dev/video4");
  EXPECT_EQ(idOf("p,api.v4l2.path=\"/dev/video5\""), "/dev/video5");
  EXPECT_EQ(idOf("p"), "Webcam");
}

TEST_F(DeviceWatchTest, NodesOfOneUsbFunctionAreTwoCameras) {
  const TemporaryDirectory nodes;
  std::filesystem::create_directory(nodes / "video0");
  std::filesystem::create_directory(nodes / "video2");
  writeFile(nodes / "video0/index", "0\n");
  writeFile(nodes / "video2/index", "2\n");
  const auto properties = [&](const std::string& node) {
    return "p,device.bus=usb,device.bus_path=\"usb-0:5:1.0\",device.path=\"/dev/" + node +
           "\",sysfs.path=\"" + (nodes / node) + "\"";
  };
  EXPECT_EQ(idOf(properties("video0")), "usb-0:5:1.0");
  const auto second = deviceWith("Webcam", properties("video2").c_str());
  EXPECT_EQ(service::describeDevice(second.get()).id, "usb-0:5:1.0-video-index2");
  std::filesystem::remove_all(nodes / "video2");
  EXPECT_EQ(service::describeDevice(second.get()).id, "usb-0:5:1.0-video-index2")
      << "also when it is unplugged and the system knows it no longer";
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
