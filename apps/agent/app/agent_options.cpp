#include "app/agent_options.h"

#include <algorithm>

#include "base/command_line.h"
#include "base/errors.h"
#include "base/text/format.h"
#include "protocol/names.h"

namespace lumsar::agent {
namespace {

constexpr std::uint16_t kDefaultViewPort = 8080;

void setVersion(EndpointSettings& settings, const std::string& value) {
  const std::size_t dot = std::min(value.find('.'), value.size());
  const std::size_t minor = std::min(dot + 1, value.size());
  try {
    base::convert(value.substr(0, dot), settings.vmMajor);
    base::convert(value.substr(minor), settings.vmMinor);
  } catch (const base::UsageError&) {
    throw base::UsageError(
        base::text("\"{}\" is not a valid protocol version; expected two numbers up "
                   "to 255, such as 1.1",
                   value));
  }
}

void addHostOptions(base::CommandLine& line, Options& options) {
  line.group(base::text("Where the host connects (one of these; by default --port {})",
                        protocol::kSpicePortName));
  line.option("--port NAME", options.port, "the virtio port of this name, found without udev");
  line.option("--device PATH", options.device, "a character device");
  line.option("--listen ADDRESS", options.listen,
              "unix:PATH, tcp:PORT (loopback only) or tcp:HOST:PORT with a numeric host");
  line.option(
      "--xrdp[=LIBRARY]",
      [&options](const std::string& library) {
        options.xrdp = library;
        options.endpoint.protocol = Protocol::Rdp;
      },
      "the channel of the xrdp session in which this program runs, through xrdp's library");
  line.option("--protocol spice|rdp",
              base::choice<Protocol>(options.endpoint.protocol,
                                     {{"spice", Protocol::Spice}, {"rdp", Protocol::Rdp}}),
              "who begins the handshake: the host (spice, the default) or this program (rdp)");
  line.option("--listen-direct ADDRESS", options.listenDirect,
              "accept camera services that connect without a host, several at once; given alone, "
              "no host is waited for");
  line.option("--token-file FILE", options.tokenFile,
              "TCP peers must send the secret in FILE first (lumsar-host and lumsar-camera-service "
              "have the same option); without it, only this user and root may connect from this "
              "machine, and everybody from others");
  line.exclusive({"--listen", "--device", "--port", "--xrdp"});
}

void addOutputOptions(base::CommandLine& line, Options& options) {
  line.group("Where frames go (any of these; a camera runs only while one of them consumes it)");
  line.option(
      "--v4l2 [DEVICE]",
      [&options](const std::string& device) {
        options.videoDevices.push_back(device.empty() ? "auto" : device);
      },
      "a v4l2loopback device, /dev/videoN; can be given more than once; without DEVICE, all that "
      "exist");
  line.option("--v4l2-format auto|camera|i420|yuy2|nv12",
              base::choice<DeviceFormat>(options.videoFormat, {{"auto", DeviceFormat::Auto},
                                                               {"camera", DeviceFormat::Camera},
                                                               {"i420", DeviceFormat::I420},
                                                               {"yuy2", DeviceFormat::Yuy2},
                                                               {"nv12", DeviceFormat::Nv12}}),
              "what these devices have: the camera's own frames, or decoded ones; auto, the "
              "default, decodes H.264 only, as i420");
  line.option(
      "--hardware-decoding", options.hardwareDecoding,
      "for --v4l2 and --pipewire: decode H.264 on a graphics device (VA-API) where there is "
      "one; its driver then deals with what another machine has sent");
  line.option("--pipewire", options.pipewire,
              "PipeWire, where each camera becomes a camera of the session of this user, without a "
              "kernel module; the variable PIPEWIRE_REMOTE names the socket of another session");
  line.option(
      "--view [PORT]",
      [&options](const std::string& port) {
        options.view = kDefaultViewPort;
        if (!port.empty()) base::convert(port, options.view);
      },
      base::text("a live page on 127.0.0.1, port PORT (default {}); its address, with a key, is "
                 "logged, and whoever has it can watch",
                 kDefaultViewPort));
  line.option("--save DIRECTORY", options.save,
              "one JPEG file per frame: NAME-CAMERA-000001.jpg and so on; existing files are "
              "replaced");
  line.option("--save-mjpeg DIRECTORY", options.saveMjpeg,
              "one growing video file per camera: NAME-CAMERA.mjpeg");
  line.option("--discard", options.discard, "nowhere: frames are only counted");
}

void addOtherOptions(base::CommandLine& line, Options& options) {
  line.group("Options");
  line.option("--duration TIME", options.runFor, "end after this time, such as 500ms, 10s or 2m");
  line.option("--json", options.json, "print a summary as one JSON object at the end");
  line.option("--status-file PATH", options.statusFile,
              "keep the same summary in a file, replaced every second");
  line.option("--share-all", options.endpoint.shareAll,
              "ask the host to share all cameras at once (RDP)");
  line.option("--session N", options.endpoint.session,
              "this VM's session number, reported to the host (default 1)");
  line.option(
      "--vm-version A.B",
      [&options](const std::string& value) { setVersion(options.endpoint, value); },
      "the protocol version reported to the host (default 1.1)");
  line.option("--verbose", options.verbose, "log more");
  line.group("For tests of the host");
  line.option("--wrong-token", options.endpoint.wrongToken,
              "answer the handshake with a token other than the host's");
}

// What a manual has besides the options.
void addManual(base::CommandLine& line) {
  line.section(
      "Exit status",
      {{"0", "ended as requested or by a signal"}, {"1", "failure"}, {"2", "wrong usage"}});
  line.section(
      "Environment",
      {{"DISPLAY", "for --xrdp: the session to which the cameras come"},
       {"JOURNAL_STREAM", "set by the service manager: the log then has its priorities"},
       {"PIPEWIRE_REMOTE", "for --pipewire: the socket of a session other than this one"}});
  line.section("Files", {{"/dev/virtio-ports/" + std::string(protocol::kSpicePortName),
                          "the default channel, of a VM that is used over SPICE"},
                         {"/dev/videoN", "a device of the kernel module v4l2loopback"}});
  line.section("Examples", {{"modprobe v4l2loopback devices=4 && lumsar-agent --v4l2",
                             "cameras as /dev/videoN in a VM that is used over SPICE"},
                            {"lumsar-agent --xrdp --pipewire",
                             "cameras of an xrdp session, without a kernel module"},
                            {"lumsar-agent --listen tcp:127.0.0.1:4711 --view",
                             "a live page of what lumsar-host shares"}});
}

base::CommandLine commandLine(Options& options) {
  base::CommandLine line("lumsar-agent", "[OPTION...]",
                         "The guest agent of camera redirection: receives the cameras that a host "
                         "shares with this VM.");
  addHostOptions(line, options);
  addOutputOptions(line, options);
  addOtherOptions(line, options);
  addManual(line);
  return line;
}

}  // namespace

std::optional<Options> parseOptions(int argc, const char* const* argv) {
  Options options;
  if (!commandLine(options).parse(argc, argv)) return std::nullopt;
  const bool hasHost = !options.port.empty() || !options.device.empty() ||
                       !options.listen.empty() || options.xrdp.has_value();
  if (!hasHost && options.listenDirect.empty()) options.port = protocol::kSpicePortName;
  return options;
}

std::string helpText() {
  Options options;
  return commandLine(options).help();
}

}  // namespace lumsar::agent
