// Synthetic cameras: a moving pattern with the time of day in it.
#pragma once

#include <string>

#include "sources/virtual_cameras.h"

namespace lumsar::service {

// `description` is NAME or NAME,WIDTHxHEIGHT or NAME,WIDTHxHEIGHT@RATE (default 1280x720@30).
// Throws std::invalid_argument with a text for the user.
VirtualCamera syntheticCamera(const std::string& description);

}  // namespace lumsar::service
