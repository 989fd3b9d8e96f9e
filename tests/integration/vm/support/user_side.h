// UserSide: the user's machine: a camera service and lumsar-spice, with a record of the frames
// that the service has sent. Bound to the test's thread.
#pragma once

#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "support/process.h"

namespace lumsar::test {

using Path = std::filesystem::path;

inline constexpr const char* kCamera = "test:Front";

class UserSide {
 public:
  // Its sockets and logs are in a directory of their own inside `parent`.
  explicit UserSide(const Path& parent);

  // With a camera named kCamera of this format.
  bool startService(const std::string& format = "320x240@10");
  void killService();
  // Connects to a SPICE server and reads commands.
  void startHost(const std::string& address, const std::vector<std::string>& options = {});
  // Asks it to end, if it still runs, and expects that it does so cleanly.
  void endHost();
  // What both have written, after a failure.
  void printOutput();

  // What tells a host that takes no options of its own how to reach the service.
  std::map<std::string, std::string> hostEnvironment() const;

  const Path& directory() const { return m_directory; }
  Process& host() { return *m_host; }
  Process& service() { return *m_service; }
  // Gives the host a command and waits for its result. False when it failed or did not come.
  bool command(const std::string& line);
  // Gives "status" and returns the number behind `"name": `, -1 when there is none.
  long counter(const std::string& name);
  // Hashes of the frames that the service has sent, in order.
  std::vector<std::string> picturesSent() const;

 private:
  static inline int s_count = 0;
  Path m_directory;
  Path m_record;
  Path m_channel;
  std::unique_ptr<Process> m_service;
  std::unique_ptr<Process> m_host;
};

}  // namespace lumsar::test
