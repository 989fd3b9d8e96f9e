// Owning pointers for GStreamer's counted objects. Used wherever the service touches GStreamer.
// Reentrant, as unique_ptr is.
#ifndef LUMSAR_CAMERA_SERVICE_CAPTURE_GST_PTR_H
#define LUMSAR_CAMERA_SERVICE_CAPTURE_GST_PTR_H

#include <gst/gst.h>

#include <memory>
#include <string>

namespace lumsar::service {

struct GstRelease {
  void operator()(GstElement* object) const { gst_object_unref(object); }
  void operator()(GstDevice* object) const { gst_object_unref(object); }
  void operator()(GstDeviceMonitor* object) const { gst_object_unref(object); }
  void operator()(GstDeviceProvider* object) const { gst_object_unref(object); }
  void operator()(GstBus* object) const { gst_object_unref(object); }
  void operator()(GstPad* object) const { gst_object_unref(object); }
  void operator()(GstClock* object) const { gst_object_unref(object); }
  void operator()(GstCaps* caps) const { gst_caps_unref(caps); }
  void operator()(GstSample* sample) const { gst_sample_unref(sample); }
  void operator()(GstMessage* message) const { gst_message_unref(message); }
  void operator()(GstStructure* structure) const { gst_structure_free(structure); }
  void operator()(GError* error) const { g_error_free(error); }
  void operator()(gchar* text) const { g_free(text); }
};

template <class T>
using GstPtr = std::unique_ptr<T, GstRelease>;

// Copies a text that GStreamer allocated, and frees it.
inline std::string takeText(gchar* text) {
  const GstPtr<gchar> owned(text);
  return owned ? owned.get() : "";
}

}  // namespace lumsar::service

#endif
