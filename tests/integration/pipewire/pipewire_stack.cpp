#include "integration/pipewire/pipewire_stack.h"

#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>

#include "support/text.h"

namespace lumsar::test {
namespace {

bool runs(const Process::Words& command) {
  return Process(command).wait() == 0;
}

}  // namespace

std::string PipewireStack::obstacle() {
  for (const char* program : {"dbus-daemon", "pipewire", "wireplumber", "pw-cli", "pw-metadata"}) {
    if (!runs({program, "--version"})) return std::string("there is no ") + program;
  }
  const bool hasSource = runs({"gst-inspect-1.0", "pipewiresrc"});
  return hasSource ? "" : "there is no gst-inspect-1.0, or no GStreamer plug-in for PipeWire";
}

PipewireStack::PipewireStack() {
  // Without somebody who could ask the user there is no portal for cameras.
  writeFile(m_folder / "test.portal",
            "[portal]\nDBusName=org.freedesktop.impl.portal.desktop.test\n"
            "Interfaces=org.freedesktop.impl.portal.Access;\nUseIn=test\n");
  m_bus.emplace(
      Process::Words{"dbus-daemon", "--session", "--nofork",
                     "--address=unix:path=" + m_directory + "/bus"},
      session({{"XDG_DESKTOP_PORTAL_DIR", m_directory}, {"XDG_CURRENT_DESKTOP", "test"}}));
  EXPECT_TRUE(eventually([this] { return std::filesystem::exists(m_directory + "/bus"); }))
      << m_bus->output();
  startPipewire();
}

void PipewireStack::startPipewire() {
  m_pipewire.emplace(Process::Words{"pipewire"}, session());
  // One that was killed has left its socket, and the session manager ends when none answers.
  EXPECT_TRUE(eventually([this] {
    return Process({"pw-cli", "info", "0"}, session()).wait() == 0;
  })) << m_pipewire->output();
  m_manager.emplace(Process::Words{"wireplumber"}, session());
}

// The session manager ends with it.
void PipewireStack::killPipewire() {
  m_pipewire->stop(SIGKILL);
  m_manager->wait();
}

ProcessSetup PipewireStack::session(const std::map<std::string, std::string>& more) const {
  ProcessSetup setup{.environment = more};
  setup.environment.insert({{"XDG_RUNTIME_DIR", m_directory},
                            {"XDG_STATE_HOME", m_directory},
                            {"XDG_CONFIG_HOME", m_directory},
                            {"DBUS_SESSION_BUS_ADDRESS", "unix:path=" + m_directory + "/bus"},
                            {"PIPEWIRE_RUNTIME_DIR", ""},
                            {"PIPEWIRE_REMOTE", ""}});
  return setup;
}

std::string PipewireStack::nodes() const {
  Process list({"pw-cli", "ls", "Node"}, session());
  list.wait();
  return list.output();
}

bool PipewireStack::hasNode(const std::string& name) const {
  return has(nodes(), "node.name = \"" + name + "\"");
}

bool PipewireStack::managerKnowsACamera() const {
  Process metadata({"pw-metadata", "0", "default.video.source"}, session());
  metadata.wait();
  return has(metadata.output(), "lumsar.");
}

Process PipewireStack::consumer(const std::string& node, Process::Words elements,
                                int frames) const {
  // A session manager that has just started refuses programs that come before it knows the node.
  EXPECT_TRUE(eventually([this] { return managerKnowsACamera(); })) << nodes();
  Process::Words command = {"gst-launch-1.0", "-q", "pipewiresrc", "target-object=" + node,
                            "num-buffers=" + std::to_string(frames)};
  command.insert(command.end(), elements.begin(), elements.end());
  return Process(command, session());
}

}  // namespace lumsar::test
