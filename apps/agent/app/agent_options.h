// The command line of lumsar-agent.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "outputs/v4l2/device_format.h"
#include "session/endpoint.h"

namespace lumsar::agent {

struct Options {
  EndpointSettings endpoint;

  // Where the host comes from: at most one of these.
  std::string port;
  std::string device;
  std::string listen;
  std::optional<std::string> xrdp;  // the library's path, empty to find it

  std::string listenDirect;                      // where camera services connect without a host
  std::string tokenFile;                         // what TCP peers have to send
  std::chrono::milliseconds idleTimeout{60000};  // for a service that announces nothing

  std::vector<std::string> videoDevices;  // "auto" for all that are found
  DeviceFormat videoFormat = DeviceFormat::Auto;
  bool pipewire = false;
  bool hardwareDecoding = false;
  std::optional<std::uint16_t> view;
  std::string viewKey;  // of the page's address; a random one if empty
  std::string save;     // directories
  std::string saveMjpeg;
  bool discard = false;

  std::optional<std::chrono::milliseconds> runFor;
  std::string statusFile;
  bool json = false;
  bool verbose = false;
};

// Nothing when --help or --version has been answered. Throws base::UsageError.
std::optional<Options> parseOptions(int argc, const char* const* argv);

std::string helpText();

}  // namespace lumsar::agent
