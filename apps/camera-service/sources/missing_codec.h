// Which package has the GStreamer element that a file lacks.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace lumsar::service {

// `details` as GStreamer gives them to installers:
// "gstreamer|1.0|PROGRAM|H.264 decoder|decoder-video/x-h264, profile=(string)high".
// What is missing and where it is, for people; empty when only sound cannot be decoded.
std::string missingCodec(const std::vector<std::string>& details);

}  // namespace lumsar::service
