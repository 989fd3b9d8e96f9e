// A camera that is plugged in, its stream and a consumer of it. The test runs the io_context
// itself.
#pragma once

#include <gtest/gtest.h>

#include "camera/camera_stream.h"
#include "lumsar/camera_data.h"
#include "sources/file_probe.h"
#include "sources/virtual_cameras.h"
#include "support/eventually.h"
#include "support/messages.h"
#include "support/temporary_directory.h"
#include "unit/camera-service/media.h"

namespace lumsar::test {

struct Reader : service::FrameConsumer {
  service::CaptureRequest wanted;
  int frames = 0;
  std::size_t bytes = 0;
  PictureSize size;
  std::int64_t age = 0;
  bool takesMore = true;
  std::int64_t fullFor = 0;  // µs

  service::CaptureRequest request() const override { return wanted; }
  std::int64_t lineFullFor() override { return fullFor; }
  bool onFrame(const service::CapturedFrame& frame) override {
    ++frames;
    bytes = frame.data.bytes.size();
    size = jpegSize(frame.data.bytes);
    age = static_cast<std::int64_t>(cameraClock() - frame.time);
    return takesMore;
  }
};

// Asks for a key frame with each frame.
struct InsistentReader : Reader {
  service::CameraStream* camera = nullptr;
  std::vector<int> keys;  // numbers of frames
  std::vector<std::uint64_t> keyTimes;
  bool onFrame(const service::CapturedFrame& frame) override {
    if (frame.key) {
      keys.push_back(frames);
      keyTimes.push_back(frame.time);
    }
    ++frames;
    camera->requestKeyFrame();
    return true;
  }
};

// The provider lists what is plugged only while it is started.
class StartedProvider {
 public:
  StartedProvider() : m_provider(gst_device_provider_factory_get_by_name("lumsarvirtualcameras")) {
    gst_device_provider_start(m_provider.get());
  }
  ~StartedProvider() { gst_device_provider_stop(m_provider.get()); }
  GstDeviceProvider* get() const { return m_provider.get(); }

 private:
  service::GstPtr<GstDeviceProvider> m_provider;
};

class CaptureTest : public ::testing::Test {
 protected:
  ~CaptureTest() override {
    made.reset();
    cameraThreads.join();
  }

  // A camera that is plugged in, with a stream of its own.
  service::CameraStream& stream(const service::VirtualCamera& source) {
    cameras.plug(source);
    plugged.info.id = source.id;
    plugged.info.formats = {source.format};
    plugged.present = true;
    plugged.info.device = device(source);
    made.emplace(
        io, cameraThreads, plugged,
        [this](const service::Camera&, const std::string& why) { troubles.push_back(why); });
    return *made;
  }
  std::shared_ptr<GstDevice> device(const service::VirtualCamera& source) {
    GList* devices = gst_device_provider_get_devices(provider.get());
    std::shared_ptr<GstDevice> found;
    for (GList* item = devices; item != nullptr; item = item->next) {
      auto* candidate = static_cast<GstDevice*>(item->data);
      const std::shared_ptr<GstDevice> held(candidate, service::GstRelease{});
      if (service::takeText(gst_device_get_display_name(candidate)) == source.name) found = held;
    }
    g_list_free(devices);
    return found;
  }
  // With `reader` as its consumer.
  service::CameraStream& read(const service::VirtualCamera& source) {
    service::CameraStream& camera = stream(source);
    camera.add(reader);
    return camera;
  }
  service::VirtualCamera fileCamera(const std::string& name) const {
    const std::string path = dir / name;
    const service::FileProbe probe = service::probeFile(path);
    return {"file:" + name, name, probe.format,
            [=] { return service::makeFileSource(path, probe); }};
  }
  template <class Condition>
  bool await(Condition condition) {
    return eventuallyIn(io, condition);
  }
  void runFor(milliseconds time) {
    io.restart();
    io.run_for(time);
  }

  // Before anything that asks GStreamer.
  const bool initialised = (gst_init(nullptr, nullptr), true);
  asio::io_context io;
  asio::thread_pool cameraThreads{2};
  service::VirtualCameras cameras;
  const StartedProvider provider;
  const TemporaryDirectory dir{};  // Clang 14 wants the braces for a constant member
  service::Camera plugged;
  Reader reader;
  std::vector<std::string> troubles;
  std::optional<service::CameraStream> made;
};

}  // namespace lumsar::test
