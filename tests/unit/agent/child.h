// A program started by a test: its output in files, ended with the object.
// Used by the tests of lumsar-agent.
#ifndef LUMSAR_TESTS_UNIT_AGENT_CHILD_H
#define LUMSAR_TESTS_UNIT_AGENT_CHILD_H

#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

#include "unit/agent/temp_folder.h"

namespace lumsar::agent::test {

class Child {
 public:
  // `before` runs in the new process.
  explicit Child(
      std::vector<std::string> words, const std::function<void()>& before = [] {});
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;
  ~Child();

  // To the program and the processes that it started.
  void signal(int number) const;
  // The exit status; 1000 + the signal's number if one killed it; -1 if it does not end.
  int wait();
  // True when the log has this line part.
  bool says(const std::string& part) const;

  std::string out() const { return contentOf(m_folder / "out"); }
  std::string log() const { return contentOf(m_folder / "err"); }

 private:
  TempFolder m_folder;
  pid_t m_pid = -1;
};

}  // namespace lumsar::agent::test

#endif
