// A directory that is removed with the object, and whole files as texts.
#pragma once

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

#include "base/system/temporary_directory.h"

namespace lumsar::test {

class TemporaryDirectory : public base::TemporaryDirectory {
 public:
  // Not defaulted: Clang wants it for constants of this class.
  TemporaryDirectory() {}

  std::string path() const { return base::TemporaryDirectory::path(); }
  // The names in it, sorted.
  std::vector<std::string> files() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(path())) {
      names.push_back(entry.path().filename());
    }
    std::ranges::sort(names);
    return names;
  }
};

// Empty when there is no such file.
inline std::string readFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

inline void writeFile(const std::string& path, std::string_view content) {
  std::ofstream(path, std::ios::binary) << content;
}

}  // namespace lumsar::test
