// A program on a terminal of its own: what it writes there, and what a person types.
// Test's main thread.
#ifndef LUMSAR_TESTS_UNIT_HOST_APP_TERMINAL_H
#define LUMSAR_TESTS_UNIT_HOST_APP_TERMINAL_H

#include <sys/types.h>

#include <string>
#include <vector>

namespace lumsar::host {

class Terminal {
 public:
  explicit Terminal(const std::vector<std::string>& command);
  Terminal(const Terminal&) = delete;
  Terminal& operator=(const Terminal&) = delete;
  ~Terminal();

  void type(const std::string& keys) const;
  // Waits until `text` is written behind what the former call found.
  bool shows(const std::string& text);
  // All that was written so far.
  const std::string& screen() const { return m_screen; }
  // Whether the terminal itself puts lines together and shows what is typed, as a shell needs it.
  bool isCooked() const;
  // The exit code; 128 and the signal's number for one that was killed; -1 when it does not end.
  int wait();

 private:
  bool readMore();

  pid_t m_pid = -1;
  int m_terminal = -1;
  std::string m_screen;
  std::size_t m_found = 0;
};

}  // namespace lumsar::host

#endif
