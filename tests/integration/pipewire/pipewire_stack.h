// A PipeWire of the test's own: a session bus, PipeWire and its session manager in a directory that
// is removed with the object; programs that take frames of a camera.
#pragma once

#include <optional>

#include "support/process.h"
#include "support/temporary_directory.h"

namespace lumsar::test {

class PipewireStack {
 public:
  // Why there cannot be one here; empty if there can.
  static std::string obstacle();

  PipewireStack();

  void startPipewire();
  void killPipewire();
  const std::string& runtimeDirectory() const { return m_directory; }
  // For programs of this session, besides which they have what is in `more`.
  ProcessSetup session(const std::map<std::string, std::string>& more = {}) const;

  // What PipeWire says of its nodes.
  std::string nodes() const;
  bool hasNode(const std::string& name) const;

  // gst-launch-1.0: takes frames of the node and passes them through `elements`.
  Process consumer(const std::string& node, Process::Words elements, int frames = -1) const;

 private:
  bool managerKnowsACamera() const;

  const TemporaryDirectory m_folder;
  const std::string m_directory = m_folder.path();
  std::optional<Process> m_bus;
  std::optional<Process> m_pipewire;
  std::optional<Process> m_manager;
};

}  // namespace lumsar::test
