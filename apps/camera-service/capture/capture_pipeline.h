// The GStreamer elements of one running camera. Built by Capture on the main thread.
//
//   source - format - [jpegdec] - convert - scale - size - encoder - sink
//
#ifndef LUMSAR_CAMERA_SERVICE_CAPTURE_CAPTURE_PIPELINE_H
#define LUMSAR_CAMERA_SERVICE_CAPTURE_CAPTURE_PIPELINE_H

#include <memory>

#include "capture/capture_plan.h"
#include "capture/gst_ptr.h"

namespace lumsar::service {

struct CapturePipeline {
  std::shared_ptr<GstElement> bin;  // owns the others
  GstElement* format = nullptr;     // lets through the chosen format of the camera
  GstElement* size = nullptr;       // lets through pictures of the planned size
  GstElement* encoder = nullptr;
  GstElement* sink = nullptr;  // an appsink that keeps the newest two pictures
};

// Throws std::runtime_error when an element is missing or does not fit.
CapturePipeline buildPipeline(GstDevice* device, const CapturePlan& plan);

// Also while it runs.
void setPictureSize(const CapturePipeline& pipeline, const CapturePlan& plan);

}  // namespace lumsar::service

#endif
