#include "app/host_options.h"

#include <getopt.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "app/commands.h"

namespace lumsar::host {

namespace {

namespace fs = std::filesystem;

enum Option : int {
  kKind = 256,
  kVm,
  kVmId,
  kChannel,
  kConfig,
  kPlugin,
  kIpcLibrary,
  kExec,
  kFor,
  kWait,
  kJson,
  kVerbose,
  kVersion,
  kHelp,
};

constexpr option kSharedOptions[] = {
    {"kind", required_argument, nullptr, kKind},
    {"vm", required_argument, nullptr, kVm},
    {"vm-id", required_argument, nullptr, kVmId},
    {"channel", required_argument, nullptr, kChannel},
    {"config", required_argument, nullptr, kConfig},
    {"plugin", required_argument, nullptr, kPlugin},
    {"ipc-library", required_argument, nullptr, kIpcLibrary},
    {"exec", required_argument, nullptr, kExec},
    {"for", required_argument, nullptr, kFor},
    {"wait", required_argument, nullptr, kWait},
    {"json", no_argument, nullptr, kJson},
    {"verbose", no_argument, nullptr, kVerbose},
    {"version", no_argument, nullptr, kVersion},
    {"help", no_argument, nullptr, kHelp},
};

// The shared options, then the program's own, numbered from kFirstOwn.
constexpr int kFirstOwn = 1000;

std::vector<option> allOptions(const ProgramText& text) {
  std::vector<option> all(std::begin(kSharedOptions), std::end(kSharedOptions));
  int number = kFirstOwn;
  for (const OwnOption& own : text.own) {
    all.push_back(
        {own.name, own.argument != nullptr ? required_argument : no_argument, nullptr, number++});
  }
  all.push_back({nullptr, 0, nullptr, 0});
  return all;
}

void printHelp(const ProgramText& text) {
  std::printf("Usage: %s %s\n\n", text.name, text.synopsis);
  std::printf("Shares the cameras of this machine with a VM, through the plug-in.\n\n%s",
              text.addressHelp);
  if (!text.kind) {
    std::printf("  --kind spice|rdp     which kind of host to be (default spice)\n");
  }
  for (const OwnOption& own : text.own) {
    const std::string left = std::string("--") + own.name +
                             (own.argument != nullptr ? std::string(" ") + own.argument : "");
    std::printf("  %-20s %s\n", left.c_str(), own.help);
  }
  std::printf("  --vm-id ID           name of the VM for the camera service (default vm-1)\n");
  if (text.kind != Kind::Rdp) {
    const char* only = text.kind ? "" : ", SPICE only";
    std::printf("  --channel NAME       the camera service's channel (default lumsar%s)\n", only);
    std::printf("  --config FILE        configuration for the plug-in, JSON%s\n", only);
  }
  std::printf(
      "  --plugin PATH        the plug-in (default: where Lumsar is installed)\n"
      "  --ipc-library PATH   libvdi_ipc.so (default: beside the plug-in or in lumsar/ there)\n"
      "  --exec COMMAND       carry out COMMAND once the VM has answered; repeatable\n"
      "  --for TIME           stop TIME after the commands: 500ms, 10s, 5m or 8h\n"
      "  --wait TIME          how long to wait for the VM's answer (default 30s)\n"
      "  --json               print one JSON object at the end, and the rest on stderr\n"
      "  --verbose            show the plug-in's log\n"
      "  --version, --help\n\n"
      "Without --exec and --for it reads commands:\n%s\n\n"
      "Exit codes: 0 success, 1 a command or a connection failed, 2 wrong usage.\n",
      Commands::help().c_str());
}

std::optional<std::chrono::milliseconds> parseTime(const std::string& text) {
  struct Unit {
    std::string_view name;
    double milliseconds;
  };
  constexpr Unit kUnits[] = {{"", 1e3}, {"ms", 1}, {"s", 1e3}, {"m", 60e3}, {"h", 3600e3}};
  constexpr double kLongest = 1e10;
  char* suffix = nullptr;
  const double value = std::strtod(text.c_str(), &suffix);
  if (suffix == text.c_str()) return std::nullopt;
  for (const Unit& unit : kUnits) {
    const double time = value * unit.milliseconds;
    if (unit.name != suffix || !(time >= 0 && time <= kLongest)) continue;
    return std::chrono::milliseconds(static_cast<long>(time));
  }
  return std::nullopt;
}

fs::path programDirectory() {
  std::error_code ignored;
  return fs::read_symlink("/proc/self/exe", ignored).parent_path();
}

constexpr const char* kPluginName = "liblumsar.so.1";
constexpr const char* kIpcLibraryName = "libvdi_ipc.so";

std::vector<fs::path> withSubdirectories(const std::vector<fs::path>& places) {
  std::vector<fs::path> all;
  for (const fs::path& place : places) {
    all.push_back(place);
    all.push_back(place / "lumsar");
  }
  return all;
}

std::vector<fs::path> placesAround(const fs::path& directory) {
  return withSubdirectories(
      {directory, directory / "..", directory / "../lib", LUMSAR_LIBRARY_DIRECTORY});
}

std::optional<std::string> firstIn(const std::vector<fs::path>& places, const char* name) {
  std::error_code ignored;
  for (const fs::path& place : places) {
    const fs::path path = fs::absolute(place / name, ignored);
    if (fs::exists(path, ignored)) return fs::canonical(path, ignored).string();
  }
  return std::nullopt;
}

int mistake(const ProgramText& text, const std::string& what) {
  std::fprintf(stderr, "%s: %s. See %s --help.\n", text.name, what.c_str(), text.name);
  return 2;
}

}  // namespace

std::string findPlugin(const fs::path& directory) {
  return firstIn(placesAround(directory), kPluginName).value_or(kPluginName);
}

std::string findIpcLibrary(const fs::path& plugin, const fs::path& directory) {
  std::vector<fs::path> places = placesAround(directory);
  // A plug-in without a directory is one that the loader looks for.
  if (plugin.has_parent_path()) {
    const std::vector<fs::path> beside = withSubdirectories({plugin.parent_path()});
    places.insert(places.begin(), beside.begin(), beside.end());
  }
  if (auto found = firstIn(places, kIpcLibraryName)) return *found;
  std::string text = std::string("cannot find ") + kIpcLibraryName + " in";
  for (const fs::path& place : places) text += "\n  " + place.lexically_normal().string();
  throw std::runtime_error(text + "\nname it with --ipc-library PATH");
}

std::optional<int> parseOptions(int argc, char** argv, const ProgramText& text, Options& options) {
  const std::vector<option> all = allOptions(text);
  options.driver.kind = text.kind.value_or(Kind::Spice);
  int chosen = 0;
  while ((chosen = getopt_long(argc, argv, "h", all.data(), nullptr)) != -1) {
    const std::string value = optarg != nullptr ? optarg : "";
    if (chosen >= kFirstOwn) {
      const OwnOption& own = text.own[static_cast<std::size_t>(chosen - kFirstOwn)];
      options.own[own.name] = value;
      continue;
    }
    switch (chosen) {
      case kKind:
        if (text.kind) return mistake(text, "this program has no --kind");
        if (value != "spice" && value != "rdp") {
          return mistake(text, "--kind is spice or rdp, not \"" + value + "\"");
        }
        options.driver.kind = value == "rdp" ? Kind::Rdp : Kind::Spice;
        break;
      case kVm:
        options.vm = value;
        break;
      case kVmId:
        options.driver.vmId = value;
        break;
      case kChannel:
        options.driver.channel = value;
        break;
      case kConfig:
        options.driver.configFile = value;
        break;
      case kPlugin:
        options.plugin = value;
        break;
      case kIpcLibrary:
        options.driver.ipcLibrary = value;
        break;
      case kExec:
        options.commands.emplace_back(value);
        break;
      case kFor:
        options.runFor = parseTime(value);
        if (!options.runFor) return mistake(text, "--for needs a time such as 10s");
        break;
      case kWait: {
        const auto time = parseTime(value);
        if (!time) return mistake(text, "--wait needs a time such as 30s");
        options.waitFor = *time;
        break;
      }
      case kJson:
        options.json = true;
        break;
      case kVerbose:
        options.verbose = true;
        break;
      case kVersion:
        std::printf("%s %s\n", text.name, LUMSAR_VERSION);
        return 0;
      case kHelp:
      case 'h':
        printHelp(text);
        return 0;
      default:
        return 2;  // getopt has said why
    }
  }
  if (optind < argc && options.vm.empty()) options.vm = argv[optind++];
  if (optind < argc) return mistake(text, std::string("unexpected \"") + argv[optind] + "\"");
  if (options.vm.empty()) return mistake(text, "the VM's address is missing");
  const DriverSetup& driver = options.driver;
  if (driver.kind == Kind::Rdp &&
      (driver.channel != DriverSetup().channel || !driver.configFile.empty())) {
    return mistake(text,
                   "an RDP host has no --channel and no --config: its configuration is fixed");
  }
  const fs::path here = programDirectory();
  if (options.plugin.empty()) options.plugin = findPlugin(here);
  if (options.driver.ipcLibrary.empty()) {
    options.driver.ipcLibrary = findIpcLibrary(options.plugin, here);
  }
  return std::nullopt;
}

}  // namespace lumsar::host
