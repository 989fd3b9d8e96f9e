// lumsar-viewer: starts an unmodified SPICE viewer with the module that gives it the cameras.
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "base/command_line.h"
#include "base/errors.h"
#include "base/text/format.h"

namespace {

namespace base = lumsar::base;
namespace fs = std::filesystem;

constexpr const char* kModule = "gtk-3.0/modules/liblumsar-gtk.so";
constexpr std::array kViewers = {"remote-viewer", "virt-viewer", "virt-manager", "spicy",
                                 "gnome-boxes"};

std::string environment(const char* name) {
  const char* value = std::getenv(name);
  return value != nullptr ? value : "";
}

fs::path findModule() {
  std::error_code error;
  const fs::path here = fs::read_symlink("/proc/self/exe", error).parent_path();
  for (const fs::path& place : {here / "../lib", fs::path(LUMSAR_LIBRARY_DIRECTORY)}) {
    fs::path module = fs::canonical(place / kModule, error);
    if (!error) return module;
  }
  throw base::Failure(base::text("cannot find {} in {}; install Lumsar completely", kModule,
                                 LUMSAR_LIBRARY_DIRECTORY));
}

bool isInstalled(const std::string& program) {
  std::istringstream directories(environment("PATH"));
  for (std::string directory; std::getline(directories, directory, ':');) {
    if (access((fs::path(directory) / program).c_str(), X_OK) == 0) return true;
  }
  return false;
}

std::string firstInstalled() {
  const auto* const viewer = std::ranges::find_if(kViewers, isInstalled);
  if (viewer != kViewers.end()) return *viewer;
  std::string names;
  for (const char* name : kViewers) names += (names.empty() ? "" : ", ") + std::string(name);
  throw base::Failure(base::text("none of {} is installed; install one or name another", names));
}

void addModule(const std::string& module) {
  const std::string others = environment("GTK_MODULES");
  const std::string all = others.empty() ? module : others + ":" + module;
  setenv("GTK_MODULES", all.c_str(), 1);
}

[[noreturn]] void execute(std::vector<std::string> command) {
  std::vector<char*> words(command.size() + 1);  // the last one is null
  std::ranges::transform(command, words.begin(), [](std::string& word) { return word.data(); });
  execvp(words[0], words.data());
  throw base::Failure(base::text("cannot start {}: {}", command[0], base::systemError()));
}

base::CommandLine commandLine() {
  base::CommandLine line("lumsar-viewer", "[OPTION...] [VIEWER [ARGUMENT...]]",
                         "Starts a SPICE viewer in which the cameras of this machine can be shared "
                         "with the VM: Ctrl+Alt+C, or the button in the viewer's header bar.");
  line.section("Viewers",
               {{"VIEWER",
                 "a program of GTK 3 that shows SPICE desktops (default: the first that is "
                 "installed of remote-viewer, virt-viewer, virt-manager, spicy and "
                 "gnome-boxes)"},
                {"ARGUMENT", "the viewer's own"}});
  line.section(
      "Exit status",
      {{"1", "the viewer cannot be started"}, {"2", "wrong usage"}, {"any", "the viewer's"}});
  line.section(
      "Environment",
      {{"LUMSAR_VM_ID",
        "name of the VM for the camera service (default: what the server calls it)"},
       {"LUMSAR_IPC_CHANNEL", "the camera service's IPC channel"},
       {"LUMSAR_CONFIG", "a file with configuration for the plug-in, JSON"},
       {"LUMSAR_PLUGIN, LUMSAR_IPC_LIBRARY", "paths of the plug-in and of the IPC library"},
       {"LUMSAR_VERBOSE", "shows the plug-in's log, if it is not empty"},
       {"XDG_CONFIG_HOME", "where remembered choices are (default ~/.config)"}});
  line.section("Files", {{"$XDG_CONFIG_HOME/lumsar/viewer.json",
                          "which cameras are shared with which VM when it is connected"}});
  line.section("Examples",
               {{"lumsar-viewer remote-viewer spice://127.0.0.1:5900", "a SPICE server's desktop"},
                {"lumsar-viewer virt-viewer --attach VM", "a VM of libvirt"}});
  return line;
}

int run(int argc, char** argv) {
  // What follows the viewer's name is the viewer's.
  char** const end = argv + argc;
  char** const viewer =
      std::find_if(argv + 1, end, [](const char* word) { return word[0] != '-'; });
  if (!commandLine().parse(static_cast<int>(viewer - argv), argv)) return 0;
  std::vector<std::string> command(viewer, end);
  if (command.empty()) command.push_back(firstInstalled());
  addModule(findModule());
  execute(std::move(command));
}

}  // namespace

int main(int argc, char** argv) {
  return base::runProgram("lumsar-viewer", [&] { return run(argc, argv); });
}
