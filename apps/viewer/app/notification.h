// Notifications of the desktop: a person always knows when they are seen.
#pragma once

#include <string>

#include "window/texts.h"

namespace lumsar::viewer {

// Says that the VM begins to use cameras, and takes that back when it has ended. False when there
// is something to say and nobody shows notifications, or nobody is known yet to do so.
bool notifyOfUse(const std::string& vm, const CameraModel& before, const CameraModel& now);

}  // namespace lumsar::viewer
