// A temporary directory that goes with its object, and a working directory that is left again.
// Used by the RDP driver and tests, on one thread.
#ifndef LUMSAR_HOST_TRANSPORT_SCOPED_DIRECTORY_H
#define LUMSAR_HOST_TRANSPORT_SCOPED_DIRECTORY_H

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <system_error>

namespace lumsar::host {

class TemporaryDirectory {
 public:
  TemporaryDirectory() {
    std::string name = (parent() / "lumsar-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) {
      const int error = errno;
      throw std::runtime_error("cannot make a directory such as " + name + ": " +
                               std::generic_category().message(error) +
                               "; set TMPDIR to a directory that can be written");
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

 private:
  // A TMPDIR that is no directory is left to fail above, with a better message.
  static std::filesystem::path parent() {
    const char* given = std::getenv("TMPDIR");
    return given != nullptr && *given != '\0' ? given : "/tmp";
  }

  std::filesystem::path m_path;
};

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

#endif
