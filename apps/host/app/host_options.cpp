#include "app/host_options.h"

#include <filesystem>

#include "base/errors.h"
#include "base/text/format.h"
#include "driver/find_libraries.h"
#include "session/commands.h"

namespace lumsar::host {

namespace {

void addChannel(base::CommandLine& line, Options& options, const HostCommandLine& program) {
  line.group("The channel to the VM");
  line.option("--vm ADDRESS", options.vm, "the same as the argument");
  if (!program.protocol) {
    line.option(
        "--protocol spice|rdp",
        base::choice(options.driver.protocol, {{"spice", Protocol::Spice}, {"rdp", Protocol::Rdp}}),
        "which kind of host to be (default spice)");
  }
  program.addOwn(line);
  line.option("--vm-id ID", options.driver.vmId,
              "name of the VM for the camera service (default vm-1)");
}

void addCameraService(base::CommandLine& line, Options& options, const HostCommandLine& program) {
  line.group("The camera service");
  if (program.protocol != Protocol::Rdp) {
    const char* only = program.protocol ? "" : "; SPICE only";
    line.option("--ipc-channel NAME", options.driver.ipcChannel,
                base::text("its IPC channel (default {}{})", options.driver.ipcChannel, only));
    line.option("--config FILE", options.driver.configFile,
                base::text("configuration for the plug-in, JSON{}", only));
  }
  line.option("--plugin PATH", options.plugin, "the plug-in (default: where Lumsar is installed)");
  line.option("--ipc-library PATH", options.driver.ipcLibrary,
              "libvdi_ipc.so (default: beside the plug-in or in lumsar/ there)");
}

void addRun(base::CommandLine& line, Options& options) {
  line.group("What to do");
  line.option("--exec COMMAND", options.commands,
              "carry out COMMAND once the VM has answered; repeatable");
  line.option("--duration TIME", options.duration,
              "stop TIME after the commands, or without delay if one failed: 500ms, 10s, 5m or 8h");
  line.option("--timeout TIME", options.timeout,
              "how long to wait for the VM's answer (default 30s)");
  line.option("--json", options.json,
              "print one JSON object at the end, everything else on stderr");
  line.option("--verbose", options.verbose, "show the plug-in's log");
}

// What a manual has besides the options.
void addManual(base::CommandLine& line, const HostCommandLine& program) {
  line.section(
      "Exit status",
      {{"0", "success; a share that waits for its camera is one, too"},
       {"1", "a command was refused or failed, or there was no VM or no camera service in time"},
       {"2", "wrong usage"}});
  base::CommandLine::Entries environment = {
      {"XDG_RUNTIME_DIR", "where the camera service's socket is"}};
  environment.insert(environment.end(), program.environment.begin(), program.environment.end());
  line.section("Environment", environment);
  line.section("Files", {{"$XDG_RUNTIME_DIR/lumsar/lumsar.sock", "the camera service's socket"},
                         {"liblumsar.so.1", "the plug-in"},
                         {"libvdi_ipc.so", "the IPC library, which the plug-in loads"}});
  line.section("Examples", {{program.example, "share the first camera for a working day"},
                            {program.program + " ADDRESS", "take commands from the keyboard"}});
}

void check(const Options& options) {
  if (options.vm.empty()) throw base::UsageError("the VM's address is missing");
  const DriverSetup& driver = options.driver;
  if (driver.protocol == Protocol::Rdp &&
      (driver.ipcChannel != DriverSetup().ipcChannel || !driver.configFile.empty())) {
    throw base::UsageError(
        "an RDP host has no --ipc-channel and no --config: its configuration is fixed");
  }
}

void findLibraries(Options& options) {
  std::error_code ignored;
  const auto here = std::filesystem::read_symlink("/proc/self/exe", ignored).parent_path();
  if (options.plugin.empty()) options.plugin = findPlugin(here);
  if (options.driver.ipcLibrary.empty()) {
    options.driver.ipcLibrary = findIpcLibrary(options.plugin, here);
  }
}

}  // namespace

std::optional<Options> parseOptions(int argc, char** argv, const HostCommandLine& program) {
  Options options;
  options.driver.protocol = program.protocol.value_or(Protocol::Spice);
  base::CommandLine line(program.program, program.usage,
                         "Shares the cameras of this machine with a VM, through the plug-in.");
  addChannel(line, options, program);
  addCameraService(line, options, program);
  addRun(line, options);
  line.section("Commands, read from standard input without --exec and --duration",
               Commands::help());
  addManual(line, program);
  std::string address;
  line.argument(address);
  if (!line.parse(argc, argv)) return std::nullopt;
  if (options.vm.empty()) {
    options.vm = address;
  } else if (!address.empty()) {
    throw base::UsageError(base::text("unexpected argument \"{}\"", address));
  }
  check(options);
  findLibraries(options);
  return options;
}

}  // namespace lumsar::host
