// The GStreamer elements of one running camera.
//
//   source - format - [jpegdec] - convert and scale - size - encoder - sink
//
#pragma once

#include <memory>

#include "formats/capture_plan.h"
#include "formats/gst_ptr.h"

namespace lumsar::service {

// That starting a pipeline may need; GLib aborts the program without them.
inline constexpr std::size_t kPipelineDescriptors = 16;
// And of threads. Once GStreamer could not start one, its later pipelines wait for it indefinitely.
inline constexpr std::size_t kPipelineThreads = 8;

struct CapturePipeline {
  std::shared_ptr<GstElement> bin;  // owns the others
  GstElement* format = nullptr;     // lets through the chosen format of the camera
  GstElement* size = nullptr;       // lets through frames of the planned size
  GstElement* encoder = nullptr;
  GstElement* sink = nullptr;  // an appsink
};

// Throws std::runtime_error when an element is missing or does not fit.
CapturePipeline buildPipeline(GstDevice* device, const CapturePlan& plan);

// Also while it runs.
void setFrameSize(const CapturePipeline& pipeline, const CapturePlan& plan);

}  // namespace lumsar::service
