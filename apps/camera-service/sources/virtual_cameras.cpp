// Two small GObject classes: a device that makes its source by a function, and a provider without
// any search of its own.
#include "sources/virtual_cameras.h"

#include <stdexcept>

#include "formats/device_formats.h"

namespace lumsar::service {
namespace {

using MakeSource = std::function<GstElement*()>;
constexpr const char* kProviderName = "lumsarvirtualcameras";

struct VirtualDevice {
  GstDevice parent;
  MakeSource* makeSource;
};
struct VirtualDeviceClass {
  GstDeviceClass parent;
};
struct VirtualProvider {
  GstDeviceProvider parent;
};
struct VirtualProviderClass {
  GstDeviceProviderClass parent;
};

GstElement* createElement(GstDevice* device, const gchar* /*name*/) {
  return (*reinterpret_cast<VirtualDevice*>(device)->makeSource)();
}

void finalizeDevice(GObject* object) {
  const std::unique_ptr<MakeSource> owned(reinterpret_cast<VirtualDevice*>(object)->makeSource);
  const gpointer parent = g_type_class_peek(GST_TYPE_DEVICE);
  static_cast<GObjectClass*>(parent)->finalize(object);
}

void initDeviceClass(gpointer klass, gpointer /*data*/) {
  static_cast<VirtualDeviceClass*>(klass)->parent.create_element = createElement;
  static_cast<GObjectClass*>(klass)->finalize = finalizeDevice;
}

GType deviceType() {
  static const GType type = g_type_register_static_simple(
      GST_TYPE_DEVICE, "LumsarVirtualDevice", sizeof(VirtualDeviceClass), initDeviceClass,
      sizeof(VirtualDevice), nullptr, GTypeFlags{});
  return type;
}

void initProviderClass(gpointer klass, gpointer /*data*/) {
  auto& provider = static_cast<VirtualProviderClass*>(klass)->parent;
  provider.start = [](GstDeviceProvider*) -> gboolean { return TRUE; };
  provider.stop = [](GstDeviceProvider*) {};
  gst_device_provider_class_set_static_metadata(&provider, "Virtual cameras", "Source/Video",
                                                "Synthetic cameras and files", "Lumsar");
}

GType providerType() {
  static const GType type = g_type_register_static_simple(
      GST_TYPE_DEVICE_PROVIDER, "LumsarVirtualProvider", sizeof(VirtualProviderClass),
      initProviderClass, sizeof(VirtualProvider), nullptr, GTypeFlags{});
  return type;
}

GstPtr<GstDevice> makeDevice(const VirtualCamera& camera) {
  const GstPtr<GstCaps> caps = capsFor(camera.format);
  const GstPtr<GstStructure> properties(gst_structure_new(
      "lumsar-camera", kVirtualIdProperty, G_TYPE_STRING, camera.id.c_str(), nullptr));
  auto* device = static_cast<VirtualDevice*>(
      g_object_new(deviceType(), "display-name", camera.name.c_str(), "device-class",
                   "Video/Source", "caps", caps.get(), "properties", properties.get(), nullptr));
  device->makeSource = std::make_unique<MakeSource>(camera.makeSource).release();
  gst_object_ref_sink(device);
  return GstPtr<GstDevice>(&device->parent);
}

}  // namespace

GstElement* makeSourceBin(const std::string& description) {
  // Not with pads made by the parser: it takes an input that is linked later for an unlinked one.
  GstElement* bin = gst_parse_bin_from_description_full(description.c_str(), FALSE, nullptr,
                                                        GST_PARSE_FLAG_NONE, nullptr);
  if (bin == nullptr) return nullptr;
  const GstPtr<GstPad> last(gst_bin_find_unlinked_pad(GST_BIN(bin), GST_PAD_SRC));
  if (last) gst_element_add_pad(bin, gst_ghost_pad_new("src", last.get()));
  return bin;
}

VirtualCameras::VirtualCameras() {
  gst_device_provider_register(nullptr, kProviderName, GST_RANK_PRIMARY, providerType());
  m_provider.reset(gst_device_provider_factory_get_by_name(kProviderName));
  if (!m_provider)
    throw std::runtime_error("GStreamer did not register the provider of virtual cameras");
}

VirtualCameras::~VirtualCameras() = default;

void VirtualCameras::plug(const VirtualCamera& camera) {
  unplug(camera.id);
  GstPtr<GstDevice> device = makeDevice(camera);
  gst_device_provider_device_add(m_provider.get(), device.get());
  m_devices[camera.id] = std::move(device);
}

void VirtualCameras::unplug(const std::string& id) {
  const auto found = m_devices.find(id);
  if (found == m_devices.end()) return;
  gst_device_provider_device_remove(m_provider.get(), found->second.get());
  m_devices.erase(found);
}

}  // namespace lumsar::service
