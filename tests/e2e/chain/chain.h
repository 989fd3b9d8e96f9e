// The whole chain as a user starts it, in a directory of its own: camera service, guest agent,
// host, and the line between the last two, a process too. Each part can be killed and started
// again.
#pragma once

#include <array>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "lumsar/camera_data.h"
#include "support/process.h"
#include "support/temporary_directory.h"

namespace lumsar::test {

enum class Part { Service, Host, Agent, Line };
inline constexpr std::array kParts{Part::Service, Part::Host, Part::Agent, Part::Line};
const char* nameOf(Part part);

// The program of the line: carries what comes, writes "frame" for each frame that it has passed on,
// and stops in the middle of the next message of the kind that it is told on standard input, until
// it is told "go".
int runLine(const std::string& clientSide, const std::string& serverSide);

class Chain {
 public:
  struct Setup {
    std::string bin;       // the directory of the programs
    std::string self;      // this program, which is the line when its first argument is "line"
    std::string protocol;  // spice or rdp
    bool saves = false;    // the agent saves each frame below disk()
    std::map<std::string, std::string> environment = {};
  };

  explicit Chain(Setup setup);

  // As eventually(), for many chains at once: looks less often, and calls `watch` each time.
  bool soon(const std::function<bool()>& condition, milliseconds limit = kTimeout) const;
  std::function<void()> watch = [] {};

  // Starts it, again if it has ended.
  void start(Part part);
  Process& of(Part part) { return *m_parts[index(part)]; }
  bool isStarted(Part part) const { return m_parts[index(part)] != nullptr; }
  // All that it has written, of earlier processes too.
  std::string logOf(Part part);
  std::string directory() const { return m_directory.path(); }
  std::string disk() const { return m_directory / "disk"; }

  void type(const std::string& command) { of(Part::Host).write(command + "\n"); }
  bool answered() { return of(Part::Host).countOf("VM answered") > 0; }
  // Types it as often as it is refused.
  bool share();
  // Whether `count` more frames have passed the line since the call.
  bool framesFlow(int count = 3);
  bool agentShowsNone() const;
  // The line stops in the middle of the next such message.
  void holdNext(CameraDataKind kind);
  bool holds() { return of(Part::Line).countOf("held") > 0; }
  void goOn() { of(Part::Line).write("go\n"); }
  std::vector<std::string> socketsLeft() const;

 private:
  static std::size_t index(Part part) { return static_cast<std::size_t>(part); }
  Process::Words commandOf(Part part) const;
  int framesPassed();

  const Setup m_setup;
  TemporaryDirectory m_directory;
  std::array<std::string, kParts.size()> m_earlierLogs;
  std::array<std::unique_ptr<Process>, kParts.size()> m_parts;
};

}  // namespace lumsar::test
