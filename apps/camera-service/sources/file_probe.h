// Finds out whether a file is a still image or a video, and of which size. Takes as long as reading
// the file does.
#pragma once

#include <string>

#include "sources/virtual_cameras.h"

namespace lumsar::service {

struct FileProbe {
  std::string error;  // why it cannot be a camera; empty when it can
  bool still = false;
  CameraFormat format;  // of the camera that it becomes
};

FileProbe probeFile(const std::string& path);

// The source of a camera that shows the file: a still image at a steady rate, a video at its own.
GstElement* makeFileSource(const std::string& path, const FileProbe& probe);

}  // namespace lumsar::service
