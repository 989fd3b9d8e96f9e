// Child: a program that a test starts, with its output in a log file that the test waits on.
// Bound to the test's thread. No child outlives its object, nor the test program, however it ends.
#ifndef LUMSAR_TESTS_INTEGRATION_VM_SUPPORT_CHILD_H
#define LUMSAR_TESTS_INTEGRATION_VM_SUPPORT_CHILD_H

#include <sys/types.h>

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace lumsar::vmtest {

using Path = std::filesystem::path;
using Milliseconds = std::chrono::milliseconds;

// Calls `done` every few milliseconds until it returns true. False when the time is over.
template <class Condition>
bool eventually(Milliseconds time, Condition done) {
  using Clock = std::chrono::steady_clock;
  const auto end = Clock::now() + time;
  while (!done()) {
    if (Clock::now() > end) return false;
    timespec pause{0, 5'000'000};
    nanosleep(&pause, nullptr);
  }
  return true;
}

class Child {
 public:
  using Environment = std::vector<std::pair<std::string, std::string>>;

  // Starts `command`; stdout and stderr are appended to `log`. Throws std::system_error.
  Child(const std::vector<std::string>& command, Path log, const Environment& extra = {});
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;
  ~Child();

  // One line for its standard input.
  void say(const std::string& line);
  void signal(int number) const;
  // Its exit status, or 128 + signal as in a shell; nothing when it still runs after `time`.
  std::optional<int> wait(Milliseconds time);
  bool running() { return !wait(Milliseconds(0)); }
  // Memory of its own, in KiB: what no file backs.
  long residentKb() const;

  // Waits until its output holds `text`, behind what the former call found.
  bool expect(const std::string& text, Milliseconds time = std::chrono::seconds(15));
  // Whether its output holds `text` so far, behind what the latest expect() found.
  bool said(const std::string& text) const;
  // Whether its output goes on with `text` right there.
  bool saidNext(const std::string& text) const;
  // Goes on behind all that it has said.
  void skipOutput() { m_seen = output().size(); }
  // All of its output so far.
  std::string output() const;

 private:
  pid_t m_pid = -1;
  int m_input = -1;
  Path m_log;
  std::size_t m_begin = 0;  // of this child's output in the log
  std::size_t m_seen = 0;
  std::optional<int> m_status;
};

std::string readFile(const Path& file);

}  // namespace lumsar::vmtest

#endif
