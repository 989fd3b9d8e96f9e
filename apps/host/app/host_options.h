// The command line that all host programs share.
#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "base/command_line.h"
#include "driver/plugin_driver.h"

namespace lumsar::host {

struct Options {
  DriverSetup driver;
  std::string plugin;  // path of liblumsar.so.1
  std::string vm;      // address of the VM; what it means is the program's
  std::vector<std::string> commands;
  std::optional<std::chrono::milliseconds> duration;  // after the commands
  std::chrono::milliseconds timeout{30000};           // for the VM's answer, before the commands
  bool json = false;
  bool verbose = false;

  bool interactive() const { return commands.empty() && !duration; }
};

// What one host program has of its own.
struct HostCommandLine {
  std::string program;
  std::string usage;                 // after the program's name
  std::string example;               // a command
  std::optional<Protocol> protocol;  // without one the program has --protocol
  std::function<void(base::CommandLine&)> addOwn = [](base::CommandLine&) {};
  base::CommandLine::Entries environment = {};  // of its own variables
};

// Nothing when the program should end with 0 now, after --help or --version. Throws UsageError.
std::optional<Options> parseOptions(int argc, char** argv, const HostCommandLine& commandLine);

}  // namespace lumsar::host
