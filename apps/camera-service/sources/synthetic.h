// Synthetic cameras: a moving picture with the time of day in it. Made from a `test:` camera
// description or, where there is no camera at all, from the built-in one. Called on the main
// thread; the clock is drawn on the camera's streaming thread.
#ifndef LUMSAR_CAMERA_SERVICE_SOURCES_SYNTHETIC_H
#define LUMSAR_CAMERA_SERVICE_SOURCES_SYNTHETIC_H

#include <string>

#include "sources/virtual_cameras.h"

namespace lumsar::service {

// `description` is NAME or NAME,WIDTHxHEIGHT or NAME,WIDTHxHEIGHT@RATE (default 1280x720@30).
// Throws std::invalid_argument with a text for the user.
VirtualCamera syntheticCamera(const std::string& description);

}  // namespace lumsar::service

#endif
