// Terminal: see terminal.h.
#include "unit/host/app/terminal.h"

#include <poll.h>
#include <pty.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>

namespace lumsar::host {

namespace {

constexpr std::chrono::seconds kPatience{15};  // for machines under load

}  // namespace

Terminal::Terminal(const std::vector<std::string>& command) {
  std::vector<char*> arguments;
  for (const std::string& word : command) arguments.push_back(const_cast<char*>(word.c_str()));
  arguments.push_back(nullptr);
  const winsize size = {.ws_row = 40, .ws_col = 200, .ws_xpixel = 0, .ws_ypixel = 0};
  m_pid = forkpty(&m_terminal, nullptr, nullptr, &size);
  if (m_pid != 0) return;
  setenv("TERM", "xterm", 1);
  execv(arguments[0], arguments.data());
  _exit(127);
}

Terminal::~Terminal() {
  if (m_pid > 0) {
    kill(m_pid, SIGKILL);
    waitpid(m_pid, nullptr, 0);
  }
  close(m_terminal);
}

void Terminal::type(const std::string& keys) const {
  [[maybe_unused]] const ssize_t written = write(m_terminal, keys.data(), keys.size());
}

bool Terminal::readMore() {
  pollfd file = {m_terminal, POLLIN, 0};
  if (poll(&file, 1, 50) <= 0) return true;
  char buffer[4096];
  const ssize_t size = read(m_terminal, buffer, sizeof buffer);
  if (size <= 0) return false;  // nobody has the terminal open any more
  m_screen.append(buffer, static_cast<std::size_t>(size));
  return true;
}

bool Terminal::shows(const std::string& text) {
  const auto deadline = std::chrono::steady_clock::now() + kPatience;
  while (std::chrono::steady_clock::now() < deadline) {
    const bool open = readMore();
    const std::size_t place = m_screen.find(text, m_found);
    if (place != std::string::npos) {
      m_found = place + text.size();
      return true;
    }
    if (!open) return false;
  }
  return false;
}

bool Terminal::isCooked() const {
  termios state{};
  return tcgetattr(m_terminal, &state) == 0 && (state.c_lflag & (ICANON | ECHO)) == (ICANON | ECHO);
}

int Terminal::wait() {
  const auto deadline = std::chrono::steady_clock::now() + kPatience;
  int status = 0;
  while (waitpid(m_pid, &status, WNOHANG) == 0) {
    if (std::chrono::steady_clock::now() >= deadline) return -1;
    if (!readMore()) usleep(1000);  // a full terminal would hold the program up
  }
  m_pid = -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

}  // namespace lumsar::host
