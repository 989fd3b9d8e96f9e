// A folder that goes with the object, and small helpers for files.
// Used by the tests of lumsar-agent.
#ifndef LUMSAR_TESTS_UNIT_AGENT_TEMP_FOLDER_H
#define LUMSAR_TESTS_UNIT_AGENT_TEMP_FOLDER_H

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace lumsar::agent::test {

class TempFolder {
 public:
  TempFolder() : m_path(std::filesystem::temp_directory_path() / "lumsar-vm-test-XXXXXX") {
    std::string name = m_path.string();
    if (mkdtemp(name.data()) != nullptr) m_path = name;
  }
  TempFolder(const TempFolder&) = delete;
  TempFolder& operator=(const TempFolder&) = delete;
  ~TempFolder() {
    std::error_code error;
    std::filesystem::remove_all(m_path, error);
  }

  std::string operator/(const std::string& name) const { return (m_path / name).string(); }
  std::string path() const { return m_path.string(); }
  std::vector<std::string> files() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(m_path)) {
      names.push_back(entry.path().filename());
    }
    std::ranges::sort(names);
    return names;
  }

 private:
  std::filesystem::path m_path;
};

inline std::string contentOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

}  // namespace lumsar::agent::test

#endif
