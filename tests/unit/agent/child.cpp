// Starting programs. Used by the tests of lumsar-agent.
#include "unit/agent/child.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

#include "unit/agent/eventually.h"

namespace lumsar::agent::test {
namespace {

void redirect(int to, const std::string& path) {
  const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  dup2(fd, to);
  close(fd);
}

}  // namespace

Child::Child(std::vector<std::string> words, const std::function<void()>& before) {
  std::vector<char*> argv;
  for (auto& word : words) argv.push_back(word.data());
  argv.push_back(nullptr);
  const std::string out = m_folder / "out";
  const std::string err = m_folder / "err";
  m_pid = fork();
  if (m_pid != 0) {
    setpgid(m_pid, 0);
    return;
  }
  setpgid(0, 0);
  redirect(STDOUT_FILENO, out);
  redirect(STDERR_FILENO, err);
  before();
  execv(argv[0], argv.data());
  _exit(127);
}

Child::~Child() {
  if (m_pid <= 0) return;
  signal(SIGKILL);
  waitpid(m_pid, nullptr, 0);
}

void Child::signal(int number) const {
  if (m_pid > 0) kill(-m_pid, number);
}

int Child::wait() {
  int status = 0;
  if (!eventually([&] { return waitpid(m_pid, &status, WNOHANG) == m_pid; })) return -1;
  m_pid = -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
}

bool Child::says(const std::string& part) const {
  return eventually([&] { return log().find(part) != std::string::npos; });
}

}  // namespace lumsar::agent::test
