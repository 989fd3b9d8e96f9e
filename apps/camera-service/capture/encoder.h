// The encoders: JPEG always, H.264 where GStreamer has one.
#pragma once

#include <string>
#include <vector>

#include "formats/capture_plan.h"
#include "formats/gst_ptr.h"

namespace lumsar::service {

bool h264Available();

// For tests, which try each: GStreamer's elements that can encode H.264 here, in the order of
// preference.
std::vector<std::string> h264Encoders();
// One of them, floating; null when it does not accept its settings.
GstElement* makeH264Encoder(const std::string& name, const CapturePlan& plan);

// A new floating element with one sink pad and one source pad. Throws std::runtime_error where
// GStreamer lacks it.
GstElement* makeEncoder(const CapturePlan& plan);

// Changes the quality while running. False where the encoder cannot.
bool setEncoderQuality(GstElement* encoder, const CapturePlan& plan);

// Changes the bit rate of H.264 while running. An encoder that cannot stays as it is.
void setEncoderRate(GstElement* encoder, const CapturePlan& plan);

}  // namespace lumsar::service
