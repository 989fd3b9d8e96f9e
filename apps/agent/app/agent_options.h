// The command line. Called by main before any thread exists.
#ifndef LUMSAR_AGENT_APP_AGENT_OPTIONS_H
#define LUMSAR_AGENT_APP_AGENT_OPTIONS_H

#include <chrono>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "session/vm_connection.h"

namespace lumsar::agent {

// The command line is wrong; the text says how.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

struct Options {
  LinkSettings link;

  // Where the host comes from: at most one of these.
  std::string listen;
  std::string device;
  std::string port;
  std::optional<std::string> xrdp;  // the session's own channel; xrdp's library, empty to find it

  std::string direct;  // where camera services come by themselves

  std::string save;  // folders
  std::string saveMovie;
  std::vector<std::string> videoDevices;  // "auto" for all that are found
  std::optional<std::uint16_t> view;
  bool discard = false;

  std::optional<std::chrono::milliseconds> runFor;
  std::string statusFile;
  bool json = false;
  bool verbose = false;
  bool help = false;
  bool version = false;
};

// Throws UsageError.
Options parseOptions(int argc, char* const* argv);

std::string helpText();

}  // namespace lumsar::agent

#endif
