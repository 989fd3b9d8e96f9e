// The command line of lumsar-camera-service.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "protocol/names.h"
#include "rules/access_rules.h"
#include "sources/virtual_cameras.h"
#include "transports/direct_networks.h"

namespace lumsar::service {

struct Options {
  std::string channel = protocol::kDefaultIpcChannel;
  bool status = false;  // ask a running service instead of being one
  bool json = false;
  bool verbose = false;
  std::vector<VirtualCamera> synthetic;
  std::vector<std::string> files;
  std::vector<std::string> directories;
  AccessRules access;
  std::string tokenFile;  // of the VMs' guest agents
  DirectNetworks direct;
};

// Nothing when --help or --version has been answered. Throws UsageError.
std::optional<Options> parseOptions(int argc, const char* const* argv);

}  // namespace lumsar::service
