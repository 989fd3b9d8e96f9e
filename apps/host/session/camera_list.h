// CameraList: the cameras of this machine, as the camera service listed them.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "lumsar/plugin.h"

namespace lumsar::host {

struct ListedCamera {
  std::string id;
  std::string name;
  bool present = true;
  bool sharedHere = false;  // with this host's VM, or waits for that
  bool inUseHere = false;   // by this host's VM
  double framesHere = 0;    // that it has got since the camera is shared
};

// A command that was not carried out or a connection that ended; not what a camera is like now.
struct ListedRefusal {
  std::string change;  // "refused", "failed"
  std::string camera;  // its id, or what the command called it; empty when it named none
  std::string name;
  std::string reason;  // for people
};

// What somebody else has changed on this host's behalf since its own last command for the camera.
struct ListedControl {
  std::string camera;  // its id; of an empty one, no other is shared any more
  bool shared = false;
};

struct CameraList {
  std::vector<ListedCamera> cameras;
  // What the service waits for and has never seen, by what the command called it.
  std::vector<ListedCamera> awaited;
  std::vector<ListedRefusal> refusals;
  std::vector<ListedControl> controls;
  std::string policyNotes;  // for people, a line for each correction
  std::string description;  // for people, a line for each camera and each thing that is wrong
};

struct ListReply {
  int status = STATUS_OK;  // STATUS_LIST_ERROR when the service could not list
  std::string text;        // JSON, or what the service said of its error
};

// Asks the service through the plug-in; may block.
ListReply askForList(const Plugin& plugin);
CameraList readList(const std::string& text);

}  // namespace lumsar::host
