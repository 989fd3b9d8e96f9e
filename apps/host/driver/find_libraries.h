// Finds the plug-in and the IPC library where they are built or installed.
#pragma once

#include <filesystem>
#include <string>

namespace lumsar::host {

inline constexpr const char* kIpcLibraryName = "libvdi_ipc.so";
// How a program of ours is told where the IPC library is, for advice.
inline constexpr const char* kIpcLibraryOption = "--ipc-library PATH";

// The plug-in around `directory`, where a program or an add-in is; its bare name when it is not
// there, for the loader to look.
std::string findPlugin(const std::filesystem::path& directory);

// The camera window's library around `directory`; its bare name when it is not there.
std::string findPanelLibrary(const std::filesystem::path& directory);

// The IPC library beside `plugin`, else around `directory`. Throws Failure when it is in neither
// place: by its bare name it would be taken from wherever the program was started.
std::string findIpcLibrary(const std::filesystem::path& plugin,
                           const std::filesystem::path& directory,
                           const std::string& option = kIpcLibraryOption);

// Loads it once, as the plug-in, whose log is not shown, says nothing but that it cannot. Throws
// Failure with the loader's reason.
void checkIpcLibrary(const std::string& path, const std::string& option = kIpcLibraryOption);

}  // namespace lumsar::host
