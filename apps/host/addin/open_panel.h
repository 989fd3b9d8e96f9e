// The camera window in a client that is a program of GTK 3.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "cameras/camera_panel.h"

namespace lumsar::host {

// Loads the library with the window from around `directory`. None where the client is no program of
// GTK 3, or without the library; then `explain` is told why.
std::unique_ptr<CameraPanel> openPanel(const std::string& directory, const std::string& vm,
                                       CameraControl& control,
                                       const std::function<void(const std::string&)>& explain);

}  // namespace lumsar::host
