// The "relative_path" of a SPICE host's configuration, for an IPC library that is installed
// anywhere. Needs C++17.
//
//   config = R"({"ipc_name": "lumsar", "relative_path": ")" +
//            lumsar::relativePathTo("/usr/lib/x86_64-linux-gnu/lumsar") + R"("})";
#pragma once

#include <filesystem>
#include <string>

namespace lumsar {

// The text that leads the plug-in from the directory of the host's executable to `directory`, an
// absolute path. The plug-in appends the text to that directory and turns each "./" in it into "/",
// so the text has ".../" for "../". It climbs to the root, hence it also leads there from no
// directory at all, as in a host without a Qt application object. Quotation marks and backslashes
// in `directory` are still to be escaped for JSON.
inline std::string relativePathTo(
    const std::filesystem::path& directory,
    const std::filesystem::path& application =
        std::filesystem::read_symlink("/proc/self/exe").parent_path()) {
  std::string path;
  for (const auto& name : application.relative_path()) {
    if (!name.empty()) path += "/..";
  }
  path += directory.lexically_normal().string();
  if (path.back() == '/') path.pop_back();
  std::string text;
  for (const char c : path) {
    if (c == '/' && !text.empty() && text.back() == '.') text += '.';
    text += c;
  }
  return text;
}

}  // namespace lumsar
