// A working directory that is left again.
#pragma once

#include <filesystem>

namespace lumsar::host {

class WorkingDirectory {
 public:
  explicit WorkingDirectory(const std::filesystem::path& path)
      : m_before(std::filesystem::current_path()) {
    std::filesystem::current_path(path);
  }
  ~WorkingDirectory() {
    std::error_code ignored;
    std::filesystem::current_path(m_before, ignored);
  }
  WorkingDirectory(const WorkingDirectory&) = delete;
  WorkingDirectory& operator=(const WorkingDirectory&) = delete;

 private:
  std::filesystem::path m_before;
};

}  // namespace lumsar::host
