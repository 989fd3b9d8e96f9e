// CameraModel: what a person sees of one VM's cameras; a value without a window and without
// threads.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "session/camera_list.h"
#include "session/session.h"

namespace lumsar::viewer {

enum class CameraState { Off, On, InUse, Unplugged, Refused };

struct CameraRow {
  std::string id;
  std::string name;
  CameraState state = CameraState::Off;
  bool shared = false;
  std::string reason = {};  // why it was refused or has failed

  bool operator==(const CameraRow&) const = default;
};

enum class Problem { None, Failure, NoService, PortClosed, NoAnswer, NotOurs };

struct CameraModel {
  Problem problem = Problem::None;
  std::string details = {};  // of a failure
  std::vector<CameraRow> cameras = {};
  bool remembered = false;  // what is shared is shared again at the next connection

  bool inUse() const;
  std::vector<std::string> shared() const;
  bool operator==(const CameraModel&) const = default;
};

// What the session and the camera service's list mean for the VM that is called `vmId` there.
CameraModel describeCameras(const host::Session::State& session,
                            const std::optional<host::CameraList>& list, const std::string& vmId);

}  // namespace lumsar::viewer
