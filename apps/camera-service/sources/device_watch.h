// DeviceWatch: GStreamer's device monitor, turned into two events of the main loop. Sees webcams
// and virtual cameras alike.
#pragma once

#include <asio/io_context.hpp>
#include <functional>
#include <memory>

#include "camera/camera_info.h"
#include "formats/gst_ptr.h"

namespace lumsar::service {

class DeviceWatch {
 public:
  struct Events {
    std::function<void(CameraInfo camera)> onPlugged;
    std::function<void(const std::string& id)> onUnplugged;
  };

  // A device may be reported twice at the start; the receiver ignores the second time.
  DeviceWatch(asio::io_context& io, Events events);
  ~DeviceWatch();
  DeviceWatch(const DeviceWatch&) = delete;
  DeviceWatch& operator=(const DeviceWatch&) = delete;

  // Reports what is present, then what is plugged and unplugged.
  void start();

 private:
  struct Inbox;

  std::shared_ptr<Inbox> m_inbox;
  GstPtr<GstDeviceMonitor> m_monitor;
};

// What GStreamer knows of a device.
CameraInfo describeDevice(GstDevice* device);

}  // namespace lumsar::service
