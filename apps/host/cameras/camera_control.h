// CameraControl: what a person asks of a host's cameras. Thread-safe; nothing waits.
#pragma once

#include <string>

namespace lumsar::host {

class CameraControl {
 public:
  CameraControl() = default;
  CameraControl(const CameraControl&) = delete;
  CameraControl& operator=(const CameraControl&) = delete;
  virtual ~CameraControl() = default;

  virtual void setShared(const std::string& id, bool shared) = 0;
  // All: those that are there, are off and have not been refused. None: all that are shared.
  virtual void setAllShared(bool shared) = 0;
  // Whether what is shared is shared again at the next connection.
  virtual void setRemembered(bool remembered) = 0;
  // While the window is open, what it shows follows the camera service.
  virtual void setWatched(bool watched) = 0;
};

}  // namespace lumsar::host
