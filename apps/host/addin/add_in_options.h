// The options of the add-in for FreeRDP's clients, and which VM it is about.
#pragma once

#include <span>
#include <string>
#include <vector>

#include "driver/plugin_driver.h"

namespace lumsar::host {

struct AddInOptions {
  DriverSetup driver;
  std::string plugin;
  std::vector<std::string> shares;  // "all", "none" or cameras; empty: as the VM wants it
  bool isVmNamed = false;           // vm-id is given
  bool window = true;
  bool verbose = false;
};

// Of "/vc:lumsar,plugin:PATH,ipc-library:PATH,vm-id:ID,share:NAME,window:no,verbose", what follows
// the name. `directory` is where the add-in is. Throws UsageError or Failure.
AddInOptions parseAddInOptions(std::span<const std::string> words, const std::string& directory);

// Which VM it is, for people, and under which its choices are kept: empty where it cannot be told
// from others.
struct AddInVm {
  std::string name;
  std::string key;
};
AddInVm identify(const AddInOptions& options, const std::string& host, unsigned port);

}  // namespace lumsar::host
