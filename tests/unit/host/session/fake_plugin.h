// What a test sets and sees of the plug-in that it has loaded. One thread.
#ifndef LUMSAR_TESTS_UNIT_HOST_SESSION_FAKE_PLUGIN_H
#define LUMSAR_TESTS_UNIT_HOST_SESSION_FAKE_PLUGIN_H

#include <string>
#include <vector>

struct FakePlugin {
  std::vector<std::string> commands;  // all but "list"
  std::string list;                   // its answer to "list"
  int listGrowth = 0;                 // how often the answer still grows when it is asked for
  int status = 0;                     // of all commands
};

#endif
