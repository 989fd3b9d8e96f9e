// Choices: which cameras a person wants shared with a VM whenever it is connected, in one file for
// all VMs. Not thread-safe.
#pragma once

#include <QJsonObject>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace lumsar::host {

class Choices {
 public:
  using Cameras = std::vector<std::string>;  // ids

  // A file that cannot be understood is set aside, and a warning says so.
  Choices(std::string file, std::string vm);

  // Not where there is no file, nor for a VM that cannot be told from others.
  bool canRemember() const { return !m_file.empty() && !m_vm.empty(); }

  // None when nothing is to be remembered of this VM.
  const std::optional<Cameras>& cameras() const { return m_cameras; }
  // False, with errno set, when it cannot be written; what other VMs have in the file stays.
  bool remember(std::optional<Cameras> cameras);
  // What there is to say since it was last asked for.
  std::string takeWarning() { return std::exchange(m_warning, {}); }

 private:
  std::optional<QJsonObject> read();

  std::string m_file;
  std::string m_vm;
  std::optional<Cameras> m_cameras;
  std::string m_warning;
};

}  // namespace lumsar::host
