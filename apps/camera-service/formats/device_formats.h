// The formats that a device offers, read from GStreamer's caps.
#pragma once

#include <vector>

#include "formats/camera_format.h"
#include "formats/gst_ptr.h"

namespace lumsar::service {

std::vector<CameraFormat> deviceFormats(GstDevice* device);
std::vector<CameraFormat> formatsOf(const GstCaps* caps);

// The caps that make a source deliver exactly this format.
GstPtr<GstCaps> capsFor(const CameraFormat& format);

}  // namespace lumsar::service
