// The camera window's words, in the language of the desktop.
#pragma once

#include <cstdint>
#include <string>

#include "cameras/camera_model.h"

namespace lumsar::viewer {

using host::CameraModel;
using host::CameraRow;
using host::CameraState;
using host::Problem;

inline constexpr char kTextDomain[] = "lumsar";

// Once, before the first text.
void bindTexts();
// What `text` is in the desktop's language.
const char* tr(const char* text) __attribute__((format_arg(1)));

// "In use by the VM" and the like.
std::string stateText(const CameraRow& camera);
// What is wrong and what to do; empty when nothing is.
std::string problemText(const CameraModel& model);
// Frames of this encoding are not shown.
std::string noPreviewText(std::uint32_t encoding);

}  // namespace lumsar::viewer
