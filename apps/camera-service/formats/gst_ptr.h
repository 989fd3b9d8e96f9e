// Owning pointers for GStreamer's counted objects, and shared ones for its callbacks.
#pragma once

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
  void operator()(GstEvent* event) const { gst_event_unref(event); }
  void operator()(GstBuffer* buffer) const { gst_buffer_unref(buffer); }
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

// A counted reference as the data of a callback, which GStreamer releases with it.
template <class T>
gpointer holdShared(const std::shared_ptr<T>& object) {
  return std::make_unique<std::shared_ptr<T>>(object).release();
}
template <class T>
const std::shared_ptr<T>& held(gpointer data) {
  return *static_cast<std::shared_ptr<T>*>(data);
}
template <class T>
void releaseShared(gpointer data) {
  const std::unique_ptr<std::shared_ptr<T>> owned(static_cast<std::shared_ptr<T>*>(data));
}

// Calls `callback` for whatever passes the pad; `object`, its data, lives as long as the probe.
template <class T>
void addProbe(GstElement* element, const char* padName, const std::shared_ptr<T>& object,
              GstPadProbeCallback callback, GstPadProbeType what = GST_PAD_PROBE_TYPE_BUFFER) {
  const GstPtr<GstPad> pad(gst_element_get_static_pad(element, padName));
  gst_pad_add_probe(pad.get(), what, callback, holdShared(object), releaseShared<T>);
}

}  // namespace lumsar::service
