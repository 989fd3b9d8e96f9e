// The command line that all host programs share. Parsed once at start.
#ifndef LUMSAR_HOST_APP_HOST_OPTIONS_H
#define LUMSAR_HOST_APP_HOST_OPTIONS_H

#include <chrono>
#include <filesystem>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "session/plugin_driver.h"

namespace lumsar::host {

struct Options {
  DriverSetup driver;
  std::string plugin;  // path of liblumsar.so.1
  std::string vm;      // address of the VM's side; what it means is the program's
  std::vector<std::string> commands;
  std::optional<std::chrono::milliseconds> runFor;  // after the commands
  std::chrono::milliseconds waitFor{30000};         // for the VM's answer, before the commands
  bool json = false;
  bool verbose = false;
  std::map<std::string, std::string> own;  // the program's own options that were given

  bool interactive() const { return commands.empty() && !runFor; }
};

// A mistake in the command line that a program finds in what is its own.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// What one host program has of its own.
struct OwnOption {
  const char* name;
  const char* argument;  // as the help shows it; null for none
  const char* help;
};

struct ProgramText {
  const char* name;
  const char* synopsis;      // the line after "Usage: NAME"
  const char* addressHelp;   // about the address, one or more whole lines
  std::optional<Kind> kind;  // without one the program has --kind
  std::vector<OwnOption> own = {};
};

// The plug-in as it is built or installed around `directory`, where a program or an add-in is; its
// bare name when it is not there, for the loader to look.
std::string findPlugin(const std::filesystem::path& directory);

// The IPC library beside `plugin`, else around `directory`. Throws std::runtime_error when it is in
// neither place: by its bare name it would be taken from wherever the program was started.
std::string findIpcLibrary(const std::filesystem::path& plugin,
                           const std::filesystem::path& directory);

// Fills `options`; a number when the program should exit with it now: 0 after --help or --version,
// 2 after a mistake, which has been explained on stderr.
std::optional<int> parseOptions(int argc, char** argv, const ProgramText& text, Options& options);

}  // namespace lumsar::host

#endif
