// Child: another process for a test, with its standard output and error in a file; killed with the
// object. Test's main thread.
#ifndef LUMSAR_TESTS_UNIT_IPC_CHILD_H
#define LUMSAR_TESTS_UNIT_IPC_CHILD_H

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "unit/ipc/support.h"

namespace lumsar::test {

class Child {
 public:
  Child(const std::vector<std::string>& command, std::string outputFile)
      : m_output(std::move(outputFile)) {
    std::vector<char*> arguments;
    for (const std::string& word : command) arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_addopen(&actions, 1, m_output.c_str(), O_WRONLY | O_CREAT | O_APPEND,
                                       0600);
    ::posix_spawn_file_actions_adddup2(&actions, 1, 2);
    if (::posix_spawn(&m_pid, arguments[0], &actions, nullptr, arguments.data(), environ) != 0) {
      m_pid = -1;
    }
    ::posix_spawn_file_actions_destroy(&actions);
  }
  ~Child() {
    if (m_pid < 0) return;
    ::kill(m_pid, SIGKILL);
    wait();
  }
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  pid_t pid() const { return m_pid; }
  std::string output() const { return readFile(m_output); }
  bool awaitOutput(const std::string& text) const {
    return waitUntil([&] { return output().find(text) != std::string::npos; });
  }
  // Nothing for one that has ended: its number would stand for every process of the machine.
  void signal(int number) const {
    if (m_pid > 0) ::kill(m_pid, number);
  }
  // The exit code; 128 and the signal's number for one that was killed; -1 when it does not end.
  int wait() {
    int status = 0;
    const bool ended = waitUntil([&] { return ::waitpid(m_pid, &status, WNOHANG) != 0; });
    if (!ended) return -1;
    m_pid = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  }

 private:
  pid_t m_pid = -1;
  std::string m_output;
};

}  // namespace lumsar::test

#endif
