#include "app/service_options.h"

#include <unistd.h>

#include <filesystem>

#include "base/command_line.h"
#include "base/errors.h"
#include "base/system/files.h"
#include "base/text/format.h"
#include "ipc/channel_path.h"
#include "lumsar/ipc_transport.h"
#include "sources/synthetic.h"

namespace lumsar::service {
namespace {

namespace fs = std::filesystem;

bool isReadable(const fs::path& path) {
  return access(path.c_str(), R_OK) == 0;
}

std::string absolutePath(const fs::path& path) {
  return fs::absolute(path).lexically_normal().string();
}

void addCamera(const std::string& value, Options& options) {
  if (value.starts_with("test:")) {
    options.synthetic.push_back(syntheticCamera(value.substr(5)));
    return;
  }
  if (!value.starts_with("file:")) {
    throw base::UsageError(base::text(
        "\"{}\" is not a valid camera; expected test:NAME,1280x720@30 or file:PATH", value));
  }
  const fs::path file = value.substr(5);
  if (!fs::is_regular_file(file) || !isReadable(file)) {
    throw base::UsageError(base::text("there is no readable file {}", file.string()));
  }
  options.files.push_back(absolutePath(file));
}

void addDirectory(const std::string& value, Options& options) {
  if (!fs::is_directory(value) || !isReadable(value)) {
    throw base::UsageError(base::text("there is no readable directory {}; create it first", value));
  }
  options.directories.push_back(absolutePath(value));
}

// The default one too: it needs a runtime directory.
void checkChannel(const Options& options) {
  const int error = ipc::channelPath(options.channel.c_str()).error;
  if (error != 0) throw base::UsageError(base::text("--ipc-channel: {}", ipcErrorText(error)));
}

void addCameraOptions(base::CommandLine& line, Options& options) {
  line.group("Cameras besides the webcams (without any camera a synthetic one is offered)");
  line.option(
      "--camera CAMERA", [&options](const std::string& value) { addCamera(value, options); },
      "test:NAME[,WIDTHxHEIGHT[@RATE]] for a synthetic camera, file:PATH for a still image or a "
      "video file; repeatable");
  line.option(
      "--watch DIRECTORY", [&options](const std::string& value) { addDirectory(value, options); },
      "each still image and video file in DIRECTORY, for as long as it is there; repeatable");
  line.group("Which VM may have which camera");
  line.option(
      "--allow CAMERA[@VM]", [&options](const std::string& rule) { options.access.allow(rule); },
      "allow only this camera, by id or name, to all VMs or to one; * and ? match as in file "
      "names; repeatable");
  line.option(
      "--deny CAMERA[@VM]", [&options](const std::string& rule) { options.access.deny(rule); },
      "deny this camera, by id or name, to all VMs or to one; takes precedence over --allow; "
      "repeatable");
  line.option(
      "--direct-to NETWORK",
      [&options](const std::string& network) { options.direct.add(network); },
      "with \"share over TCP\", connect only to VMs in NETWORK, such as 10.0.0.0/8, fd00::/8 or "
      "one "
      "address; repeatable (default: any address)");
}

// Not the channel: those who ask for the status would have to know it, too.
void addConfigFile(base::CommandLine& line) {
  line.configFile(
      base::userConfigFile("camera-service.conf"),
      {"--camera", "--watch", "--allow", "--deny", "--direct-to", "--token-file", "--verbose"},
      "--status",
      "read cameras, rules and the like from FILE before the command line, such as "
      "\"deny = Front\" (default $XDG_CONFIG_HOME/lumsar/camera-service.conf, if it is there)");
}

void addOtherOptions(base::CommandLine& line, Options& options) {
  line.group("Options");
  line.option("--ipc-channel NAME", options.channel,
              base::text("the IPC channel, or the absolute path of its socket (default {})",
                         options.channel));
  line.option(
      "--token-file FILE", options.tokenFile,
      "with \"share over TCP\", send the secret in FILE first: the guest agent's token file");
  addConfigFile(line);
  line.option("--status", options.status, "ask the running service what it is doing, and exit");
  line.option("--json", options.json, "with --status: answer as JSON");
  line.option("--verbose", options.verbose, "log more");
}

// What a manual has besides the options.
void addManual(base::CommandLine& line) {
  line.section("Exit status",
               {{"0", "stopped by a signal, or asked for its status"},
                {"1", "failure; with --status also that no service runs"},
                {"2", "wrong usage, or a line of the configuration file that cannot be used"}});
  line.section("Environment",
               {{"XDG_RUNTIME_DIR", "where the socket is"},
                {"XDG_CONFIG_HOME", "where the configuration file is (default ~/.config)"},
                {"LISTEN_FDS, LISTEN_PID", "the socket, when the service manager holds it"}});
  line.section("Files",
               {{"$XDG_CONFIG_HOME/lumsar/camera-service.conf", "options, one a line"},
                {"$XDG_RUNTIME_DIR/lumsar/lumsar.sock", "the socket, where hosts connect"}});
  line.section("Examples",
               {{"lumsar-camera-service --camera test:Front,640x480@15 --deny 'Front@vm-7'",
                 "the webcams and a synthetic camera, which one VM does not get"},
                {"lumsar-camera-service --status", "what the running service is doing"}});
}

}  // namespace

std::optional<Options> parseOptions(int argc, const char* const* argv) {
  Options options;
  base::CommandLine line("lumsar-camera-service", "[OPTION...]",
                         "Owns this machine's cameras and streams them to VMs on demand, through "
                         "the hosts that are\nconnected to it.");
  addCameraOptions(line, options);
  addOtherOptions(line, options);
  addManual(line);
  if (!line.parse(argc, argv)) return std::nullopt;
  checkChannel(options);
  return options;
}

}  // namespace lumsar::service
