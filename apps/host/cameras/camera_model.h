// CameraModel: what a person sees of one VM's cameras; a value without a window and without
// threads.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "driver/plugin_driver.h"
#include "session/camera_list.h"
#include "session/session.h"

namespace lumsar::host {

enum class CameraState { Off, On, InUse, Unplugged, Refused };

struct CameraRow {
  std::string id;
  std::string name;
  CameraState state = CameraState::Off;
  bool shared = false;
  std::string reason = {};  // why it was refused or has failed

  bool operator==(const CameraRow&) const = default;
};

enum class Problem {
  None,
  CannotStart,      // the plug-in or what it needs is missing
  Failure,          // of this program
  ConnectionEnded,  // the viewer's to the VM
  TooMuch,          // sent by the VM
  NoService,
  ServiceSilent,
  PortClosed,
  NoAnswer,  // of the VM
  NotOurs,
  // Of an RDP server:
  NoChannel,
  ChannelSilent
};

struct CameraModel {
  Problem problem = Problem::None;
  bool isListed = false;  // there is a list, though it may be empty
  std::vector<CameraRow> cameras = {};
  bool canRemember = false;
  bool remembered = false;  // what is shared is shared again at the next connection
  bool notSaved = false;    // what was last to be remembered or forgotten

  bool inUse() const;
  std::vector<std::string> shared() const;
  bool operator==(const CameraModel&) const = default;
};

// What the session and the camera service's latest list, which was made for it, mean.
CameraModel describeCameras(const Session::State& session, const std::optional<CameraList>& list,
                            bool serviceAnswers, Protocol protocol);

}  // namespace lumsar::host
