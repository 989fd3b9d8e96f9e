// What a test sets and sees of the plug-in that it has loaded. One thread, but for what is used
// through std::atomic_ref.
#pragma once

#include <string>
#include <vector>

#include "lumsar/plugin.h"

struct FakePlugin {
  std::vector<std::string> commands;  // all but "list"
  std::string list;                   // its answer to "list"
  int listGrowth = 0;                 // how often the answer still grows when it is asked for
  int status = 0;                     // of all commands; atomic
  int listStatus = 0;                 // of "list"; atomic
  int frames = 0;                     // in place of the 5 in "framesHere":5, if any; atomic
  int lists = 0;                      // how often it was asked for; atomic
  lumsar::SpicePostEventFunc event;   // the host's
  std::vector<std::string> handled;   // messages of the VM
  bool throws = false;                // whatever it is asked
  int initStatus = 0;                 // of Init
  int inits = 0;                      // how often it was initialised
};
