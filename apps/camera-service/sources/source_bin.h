// Makes a camera's source from a pipeline description.
#ifndef LUMSAR_CAMERA_SERVICE_SOURCES_SOURCE_BIN_H
#define LUMSAR_CAMERA_SERVICE_SOURCES_SOURCE_BIN_H

#include <gst/gst.h>

#include <string>

namespace lumsar::service {

// A new floating bin of these elements with the last one's source pad as its own, or null.
GstElement* makeSourceBin(const std::string& description);

}  // namespace lumsar::service

#endif
