#include "capture/capture_pipeline.h"

#include <stdexcept>

#include "base/text/format.h"
#include "capture/encoder.h"
#include "formats/device_formats.h"

namespace lumsar::service {
namespace {

// Puts elements into the pipeline, each linked to the one before.
class Chain {
 public:
  explicit Chain(GstElement* pipeline) : m_pipeline(pipeline) {}

  GstElement* add(GstElement* element, const char* what) {
    if (element == nullptr) {
      throw std::runtime_error(
          base::text("GStreamer lacks {}; install gstreamer1.0-plugins-base and "
                     "gstreamer1.0-plugins-good",
                     what));
    }
    gst_bin_add(GST_BIN(m_pipeline), element);
    if (m_last != nullptr && gst_element_link(m_last, element) == FALSE) {
      throw std::runtime_error(base::text("GStreamer cannot link {}", what));
    }
    return m_last = element;
  }
  GstElement* add(const char* factory) {
    return add(gst_element_factory_make(factory, nullptr), factory);
  }

 private:
  GstElement* const m_pipeline;
  GstElement* m_last = nullptr;
};

void setCaps(GstElement* filter, const GstPtr<GstCaps>& caps) {
  g_object_set(filter, "caps", caps.get(), nullptr);
}

}  // namespace

CapturePipeline buildPipeline(GstDevice* device, const CapturePlan& plan) {
  CapturePipeline pipeline;
  GstElement* bin = gst_pipeline_new(nullptr);
  gst_object_ref_sink(bin);
  pipeline.bin = std::shared_ptr<GstElement>(bin, GstRelease{});
  Chain chain(bin);
  GstElement* source = gst_device_create_element(device, nullptr);
  if (source == nullptr) throw std::runtime_error("the camera has no source to read from");
  chain.add(source, "a source for this camera");
  pipeline.format = chain.add("capsfilter");
  setCaps(pipeline.format, capsFor(plan.source));
  if (plan.source.encoding == "MJPG") chain.add("jpegdec");
  chain.add("videoconvertscale");  // both at once
  pipeline.size = chain.add("capsfilter");
  setFrameSize(pipeline, plan);
  pipeline.encoder = chain.add(makeEncoder(plan), "an encoder");
  pipeline.sink = chain.add("appsink");
  g_object_set(pipeline.sink, "sync", FALSE, "max-buffers", 1U, "drop", TRUE, nullptr);
  return pipeline;
}

void setFrameSize(const CapturePipeline& pipeline, const CapturePlan& plan) {
  // The encoder is fastest, and its frames smallest, from I420.
  setCaps(pipeline.size, GstPtr<GstCaps>(gst_caps_new_simple(
                             "video/x-raw", "format", G_TYPE_STRING, "I420", "width", G_TYPE_INT,
                             plan.width, "height", G_TYPE_INT, plan.height, "pixel-aspect-ratio",
                             GST_TYPE_FRACTION, 1, 1, nullptr)));
}

}  // namespace lumsar::service
