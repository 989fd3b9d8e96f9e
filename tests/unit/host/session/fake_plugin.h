// What a test sets and sees of the plug-in that it has loaded. One thread.
#pragma once

#include <string>
#include <vector>

struct FakePlugin {
  std::vector<std::string> commands;  // all but "list"
  std::string list;                   // its answer to "list"
  int listGrowth = 0;                 // how often the answer still grows when it is asked for
  int status = 0;                     // of all commands
  int listStatus = 0;                 // of "list"
  std::vector<std::string> handled;   // messages of the VM
  bool throws = false;                // whatever it is asked
};
