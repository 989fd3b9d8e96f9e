// VirtualCameras: cameras without a device, offered to GStreamer's device monitor by a provider
// inside this process, so that the rest of the service cannot tell them from webcams.
#pragma once

#include <functional>
#include <map>
#include <string>

#include "formats/camera_format.h"
#include "formats/gst_ptr.h"

namespace lumsar::service {

// The property of a device that holds a virtual camera's id.
inline constexpr const char* kVirtualIdProperty = "lumsar.id";

struct VirtualCamera {
  std::string id;
  std::string name;
  CameraFormat format;
  std::function<GstElement*()> makeSource;  // a new floating element with one source pad
};

// Such an element from a pipeline description: a bin with its last element's source pad as its own.
// Null when it cannot be made.
GstElement* makeSourceBin(const std::string& description);

class VirtualCameras {
 public:
  // Registers the provider. To be made after gst_init and before the device monitor starts.
  VirtualCameras();
  ~VirtualCameras();
  VirtualCameras(const VirtualCameras&) = delete;
  VirtualCameras& operator=(const VirtualCameras&) = delete;

  void plug(const VirtualCamera& camera);
  void unplug(const std::string& id);

 private:
  GstPtr<GstDeviceProvider> m_provider;
  std::map<std::string, GstPtr<GstDevice>> m_devices;
};

}  // namespace lumsar::service
