// GStreamer reports devices on threads of its own, from which the events are posted to the main
// loop.
#include "sources/device_watch.h"

#include <asio/post.hpp>
#include <fstream>
#include <stdexcept>

#include "base/log.h"
#include "formats/device_formats.h"
#include "sources/virtual_cameras.h"

namespace lumsar::service {
namespace {

constexpr const char* kBusPath = "device.bus_path";

std::string property(const GstStructure* properties, const char* name) {
  const char* value = properties == nullptr ? nullptr : gst_structure_get_string(properties, name);
  return value == nullptr ? "" : value;
}

std::uint16_t hexProperty(const GstStructure* properties, const char* name) {
  const std::string text = property(properties, name);
  return static_cast<std::uint16_t>(std::strtoul(text.c_str(), nullptr, 16));
}

// The system's number among the capture nodes of one USB function.
std::string nodeIndex(const GstStructure* properties) {
  std::string index;
  std::getline(std::ifstream(property(properties, "sysfs.path") + "/index"), index);
  return index;
}

// For a USB camera the port that it is plugged into, so that it is recognised again; on other buses
// several cameras share one path. The device file otherwise.
std::string identify(const GstStructure* properties, const std::string& name) {
  const bool usb = property(properties, "device.bus") == "usb";
  for (const char* key :
       {kVirtualIdProperty, usb ? kBusPath : "device.path", "device.path", "api.v4l2.path"}) {
    std::string value = property(properties, key);
    if (value.empty()) continue;
    const std::string index = key == kBusPath ? nodeIndex(properties) : "";
    return index.empty() || index == "0" ? value : base::text("{}-video-index{}", value, index);
  }
  return name;
}

// Kept with the device: when it is unplugged, the system no longer knows it.
std::string idOf(GstDevice* device, const GstStructure* properties, const std::string& name) {
  constexpr const char* kKey = "lumsar.known-id";
  const auto* known = static_cast<const char*>(g_object_get_data(G_OBJECT(device), kKey));
  if (known != nullptr) return known;
  std::string id = identify(properties, name);
  g_object_set_data_full(G_OBJECT(device), kKey, g_strdup(id.c_str()), g_free);
  return id;
}

// Other providers report cameras of V4L2's and libcamera's once more, under names of their own.
bool isReportedTwice(GstDevice* device) {
  const GstPtr<GstStructure> properties(gst_device_get_properties(device));
  const std::string path = property(properties.get(), "object.path");
  return path.starts_with("v4l2:") || path.starts_with("libcamera:");
}

}  // namespace

struct DeviceWatch::Inbox {
  asio::io_context& io;
  Events events;

  static void post(const std::shared_ptr<Inbox>& inbox, GstDevice* device, bool plugged) {
    if (isReportedTwice(device)) return;
    try {
      asio::post(inbox->io, [weak = std::weak_ptr(inbox), info = describeDevice(device), plugged] {
        const auto alive = weak.lock();
        if (!alive) return;
        if (plugged) alive->events.onPlugged(info);
        if (!plugged) alive->events.onUnplugged(info.id);
      });
    } catch (const std::exception& error) {  // not into GStreamer, which called
      base::logWarning("a notification of a camera was lost: {}", error.what());
    }
  }
};

CameraInfo describeDevice(GstDevice* device) {
  CameraInfo info;
  info.name = takeText(gst_device_get_display_name(device));
  const GstPtr<GstStructure> properties(gst_device_get_properties(device));
  info.id = idOf(device, properties.get(), info.name);
  info.vendorId = hexProperty(properties.get(), "device.vendor.id");
  info.productId = hexProperty(properties.get(), "device.product.id");
  info.formats = deviceFormats(device);
  gst_object_ref(device);
  info.device = std::shared_ptr<GstDevice>(device, GstRelease{});
  return info;
}

DeviceWatch::DeviceWatch(asio::io_context& io, Events events)
    : m_inbox(std::make_shared<Inbox>(Inbox{io, std::move(events)})),
      m_monitor(gst_device_monitor_new()) {}

DeviceWatch::~DeviceWatch() {
  const GstPtr<GstBus> bus(gst_device_monitor_get_bus(m_monitor.get()));
  gst_bus_set_sync_handler(bus.get(), nullptr, nullptr, nullptr);
  gst_device_monitor_stop(m_monitor.get());
}

void DeviceWatch::start() {
  gst_device_monitor_add_filter(m_monitor.get(), "Video/Source", nullptr);
  // Else one provider hides another's devices, and it depends on their order whether all are seen.
  gst_device_monitor_set_show_all_devices(m_monitor.get(), TRUE);
  const GstPtr<GstBus> bus(gst_device_monitor_get_bus(m_monitor.get()));
  const auto onMessage = [](GstBus*, GstMessage* message, gpointer data) -> GstBusSyncReply {
    GstDevice* device = nullptr;
    const GstMessageType type = GST_MESSAGE_TYPE(message);
    if (type == GST_MESSAGE_DEVICE_ADDED) gst_message_parse_device_added(message, &device);
    if (type == GST_MESSAGE_DEVICE_REMOVED) gst_message_parse_device_removed(message, &device);
    if (device != nullptr) {
      const GstPtr<GstDevice> owned(device);
      Inbox::post(held<Inbox>(data), device, type == GST_MESSAGE_DEVICE_ADDED);
    }
    gst_message_unref(message);
    return GST_BUS_DROP;
  };
  gst_bus_set_sync_handler(bus.get(), onMessage, holdShared(m_inbox), releaseShared<Inbox>);
  if (gst_device_monitor_start(m_monitor.get()) == FALSE) {
    throw std::runtime_error("GStreamer's device monitor did not start; is GStreamer installed?");
  }
  GList* devices = gst_device_monitor_get_devices(m_monitor.get());
  for (GList* item = devices; item != nullptr; item = item->next) {
    const GstPtr<GstDevice> device(static_cast<GstDevice*>(item->data));
    Inbox::post(m_inbox, device.get(), true);
  }
  g_list_free(devices);
}

}  // namespace lumsar::service
