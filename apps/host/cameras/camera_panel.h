// CameraPanel: one host's part of the camera window, for an add-in whose client may be a program of
// GTK 3 or have no windows at all. So the window is in a library that the add-in loads.
#pragma once

#include <memory>
#include <string>

#include "cameras/camera_control.h"
#include "cameras/camera_model.h"
#include "transport/preview_tap.h"

namespace lumsar::host {

// Thread-safe, and nothing in it waits for GTK.
class CameraPanel {
 public:
  CameraPanel() = default;
  CameraPanel(const CameraPanel&) = delete;
  CameraPanel& operator=(const CameraPanel&) = delete;
  // The connection has ended; the host is asked nothing more.
  virtual ~CameraPanel() = default;

  virtual void show(const CameraModel& model) = 0;
  // For the queue of frames: what the window shows of them.
  virtual std::shared_ptr<PreviewTap> tap() const = 0;
  // Another connection of the program, to this VM, has no cameras.
  virtual void noteOther(const std::string& vm) = 0;
};

// The library's one function for add-ins: a panel for the VM of this name, or
// null if the add-in is not of the library's version. `control` is used while the panel lives.
inline constexpr char kOpenPanel[] = "lumsarCameraPanel";
using OpenPanel = CameraPanel*(const char* version, const char* vm, CameraControl* control);

}  // namespace lumsar::host
