// Child processes of the tests: see child.h.
#include "integration/vm/support/child.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <system_error>

namespace lumsar::vmtest {

namespace {

constexpr Milliseconds kPatience(5000);

[[noreturn]] void become(const std::vector<std::string>& command, int input, int log,
                         const Child::Environment& extra) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  dup2(input, STDIN_FILENO);
  dup2(log, STDOUT_FILENO);
  dup2(log, STDERR_FILENO);
  for (const auto& [name, value] : extra) setenv(name.c_str(), value.c_str(), 1);
  std::vector<char*> arguments;
  for (const std::string& word : command) arguments.push_back(const_cast<char*>(word.c_str()));
  arguments.push_back(nullptr);
  execvp(arguments[0], arguments.data());
  perror(arguments[0]);
  _exit(127);
}

}  // namespace

std::string readFile(const Path& file) {
  std::ostringstream text;
  text << std::ifstream(file, std::ios::binary).rdbuf();
  return text.str();
}

Child::Child(const std::vector<std::string>& command, Path log, const Environment& extra)
    : m_log(std::move(log)) {
  int input[2];
  if (pipe2(input, O_CLOEXEC) != 0) throw std::system_error(errno, std::generic_category(), "pipe");
  const int file = open(m_log.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
  if (file < 0) throw std::system_error(errno, std::generic_category(), m_log.string());
  m_begin = std::filesystem::file_size(m_log);
  m_pid = fork();
  if (m_pid == 0) become(command, input[0], file, extra);
  close(input[0]);
  close(file);
  m_input = input[1];
  if (m_pid < 0) throw std::system_error(errno, std::generic_category(), "fork");
}

Child::~Child() {
  if (running()) {
    signal(SIGCONT);
    signal(SIGTERM);
    if (!wait(kPatience)) signal(SIGKILL);
    wait(kPatience);
  }
  close(m_input);
}

void Child::say(const std::string& line) {
  const std::string text = line + "\n";
  if (write(m_input, text.data(), text.size()) < 0) perror("writing to a child");
}

void Child::signal(int number) const {
  if (!m_status) kill(m_pid, number);
}

std::optional<int> Child::wait(Milliseconds time) {
  eventually(time, [this] {
    int status = 0;
    if (!m_status && waitpid(m_pid, &status, WNOHANG) == m_pid) {
      m_status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }
    return m_status.has_value();
  });
  return m_status;
}

long Child::residentKb() const {
  std::ifstream status("/proc/" + std::to_string(m_pid) + "/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with("RssAnon:")) return std::atol(line.c_str() + 8);
  }
  return 0;
}

std::string Child::output() const {
  return readFile(m_log).substr(m_begin);
}

bool Child::saidNext(const std::string& text) const {
  return output().compare(m_seen, text.size(), text) == 0;
}

bool Child::said(const std::string& text) const {
  return output().find(text, m_seen) != std::string::npos;
}

bool Child::expect(const std::string& text, Milliseconds time) {
  return eventually(time, [&] {
    const auto found = output().find(text, m_seen);
    if (found == std::string::npos) return false;
    m_seen = found + text.size();
    return true;
  });
}

}  // namespace lumsar::vmtest
