#include "driver/find_libraries.h"

#include <dlfcn.h>

#include <array>
#include <optional>
#include <vector>

#include "base/errors.h"
#include "base/text/format.h"

namespace lumsar::host {

namespace {

namespace fs = std::filesystem;

constexpr const char* kPluginName = "liblumsar.so.1";
constexpr const char* kPanelLibraryName = "liblumsar-viewer.so";
constexpr std::array kIpcFunctions = {"VDI_CreateIpcClient",     "VDI_DestroyIpcClient",
                                      "VDI_ConnectIpcClient",    "VDI_AsyncConnectIpcClient",
                                      "VDI_DisconnectIpcClient", "VDI_IsIpcClientConnected",
                                      "VDI_IpcClientSendData",   "VDI_IpcClientSyncCall"};

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
    if (fs::exists(path, ignored)) return (fs::canonical(path.parent_path()) / name).string();
  }
  return std::nullopt;
}

}  // namespace

std::string findPlugin(const fs::path& directory) {
  const auto found = firstIn(placesAround(directory), kPluginName);
  // The IPC library may be beside the plug-in, not beside a link to it.
  return found ? fs::canonical(*found).string() : kPluginName;
}

std::string findPanelLibrary(const fs::path& directory) {
  return firstIn(placesAround(directory), kPanelLibraryName).value_or(kPanelLibraryName);
}

std::string findIpcLibrary(const fs::path& plugin, const fs::path& directory,
                           const std::string& option) {
  std::vector<fs::path> places = placesAround(directory);
  // A plug-in without a directory is one that the loader looks for.
  if (plugin.has_parent_path()) {
    const std::vector<fs::path> beside = withSubdirectories({plugin.parent_path()});
    places.insert(places.begin(), beside.begin(), beside.end());
  }
  if (auto found = firstIn(places, kIpcLibraryName)) return *found;
  std::string text = base::text("cannot find {} in", kIpcLibraryName);
  for (const fs::path& place : places) {
    text += base::text("\n  {}", place.lexically_normal().string());
  }
  throw base::Failure(text + "\nname it with " + option);
}

void checkIpcLibrary(const std::string& path, const std::string& option) {
  void* library = dlopen(path.c_str(), RTLD_LAZY | RTLD_LOCAL);
  std::string error = library == nullptr ? dlerror() : "";
  for (const char* symbol : kIpcFunctions) {
    if (error.empty() && dlsym(library, symbol) == nullptr) error = dlerror();
  }
  if (library != nullptr) dlclose(library);
  if (error.empty()) return;
  throw base::Failure(
      base::text("cannot load the IPC library: {}; name another one with {}", error, option));
}

}  // namespace lumsar::host
