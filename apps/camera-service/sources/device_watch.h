// DeviceWatch: GStreamer's device monitor, turned into two events. Sees webcams and virtual cameras
// alike. Made on the main thread; the events are called on the io_context's thread only.
#ifndef LUMSAR_CAMERA_SERVICE_SOURCES_DEVICE_WATCH_H
#define LUMSAR_CAMERA_SERVICE_SOURCES_DEVICE_WATCH_H

#include <asio/io_context.hpp>
#include <functional>
#include <memory>

#include "camera/camera_info.h"

namespace lumsar::service {

class DeviceWatch {
 public:
  struct Events {
    std::function<void(CameraInfo camera)> onPlugged;
    std::function<void(const std::string& id)> onUnplugged;
  };

  // A device may be announced twice at the start; the receiver sorts that out.
  DeviceWatch(asio::io_context& io, Events events);
  ~DeviceWatch();
  DeviceWatch(const DeviceWatch&) = delete;
  DeviceWatch& operator=(const DeviceWatch&) = delete;

  // Reports what is there, then what comes and goes.
  void start();

 private:
  struct Inbox;

  std::shared_ptr<Inbox> m_inbox;
  GstPtr<GstDeviceMonitor> m_monitor;
};

// What GStreamer says of a device, in the service's words.
CameraInfo describeDevice(GstDevice* device);

}  // namespace lumsar::service

#endif
