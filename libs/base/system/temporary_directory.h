// A directory that goes with its object and with all that is in it.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>

#include "base/errors.h"
#include "base/text/format.h"

namespace lumsar::base {

class TemporaryDirectory {
 public:
  // In $TMPDIR or /tmp. Throws Failure.
  TemporaryDirectory() {
    const char* parent = std::getenv("TMPDIR");
    std::string name =
        text("{}/lumsar-XXXXXX", parent != nullptr && *parent != '\0' ? parent : "/tmp");
    if (mkdtemp(name.data()) == nullptr) {
      throw Failure(
          text("cannot create a directory such as {}: {}; set TMPDIR to a directory that "
               "can be written",
               name, systemError()));
    }
    m_path = name;
  }
  ~TemporaryDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
  }
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

  const std::filesystem::path& path() const { return m_path; }
  std::string operator/(const std::string& name) const { return (m_path / name).string(); }

 private:
  std::filesystem::path m_path;
};

}  // namespace lumsar::base
