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
};

struct CameraList {
  std::vector<ListedCamera> cameras;
  // What the service waits for and has never seen, by what the command called it.
  std::vector<ListedCamera> awaited;
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
