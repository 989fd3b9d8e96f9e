#include "app/console.h"

#include <editline/readline.h>
#include <poll.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <utility>

namespace lumsar::host {

namespace {

constexpr const char* kPrompt = "lumsar> ";
constexpr std::size_t kLongestLine = std::size_t{64} << 10U;
// How soon a busy host is asked again.
constexpr int kBusyMs = 50;

// The library calls back without context; there is one console per process.
Console* theConsole = nullptr;
void (*takeLineOf)(Console*, const char*) = nullptr;

void handleLine(char* line) {
  if (theConsole != nullptr) takeLineOf(theConsole, line);
  std::free(line);
}

}  // namespace

Console::Console(std::function<void(const std::string&)> onLine, std::function<void()> onEnd,
                 std::function<bool()> isBusy)
    : m_onLine(std::move(onLine)),
      m_onEnd(std::move(onEnd)),
      m_isBusy(std::move(isBusy)),
      m_terminal(isatty(STDIN_FILENO) == 1 && isatty(STDOUT_FILENO) == 1) {
  theConsole = this;
  takeLineOf = [](Console* console, const char* line) { console->takeLine(line); };
  m_thread = std::thread([this] { run(); });
}

Console::~Console() {
  {
    const std::lock_guard lock(m_mutex);
    m_stopping = true;
  }
  m_wake.wake();
  m_thread.join();
  theConsole = nullptr;
}

void Console::print(const std::string& line) {
  const std::lock_guard lock(m_mutex);
  m_waiting += line + "\n";
  m_wake.wake();
}

void Console::run() {
  if (m_terminal) rl_callback_handler_install(kPrompt, handleLine);
  while (true) {
    const bool busy = !m_terminal && !m_ended && m_isBusy();
    pollfd files[] = {{m_wake.get(), POLLIN, 0}, {m_ended || busy ? -1 : STDIN_FILENO, POLLIN, 0}};
    if (poll(files, 2, busy ? kBusyMs : -1) < 0 && errno != EINTR) break;
    printWaiting();
    {
      const std::lock_guard lock(m_mutex);
      if (m_stopping) break;
    }
    if (files[1].revents != 0 && !readSome()) {
      m_ended = true;
      m_onEnd();
    }
  }
  if (m_terminal) {
    rl_callback_handler_remove();
    std::putchar('\n');
  }
}

// False at the end of input.
bool Console::readSome() {
  if (m_terminal) {
    rl_callback_read_char();
    return !m_ended;
  }
  char buffer[4096];
  const ssize_t size = read(STDIN_FILENO, buffer, sizeof buffer);
  if (size <= 0) {
    if (!m_unfinished.empty()) takeUnfinished();
    return false;
  }
  for (const char* next = buffer; next != buffer + size; ++next) {
    if (*next == '\n') {
      takeUnfinished();
    } else if (m_unfinished.size() < kLongestLine) {
      m_unfinished += *next;
    } else {
      m_tooLong = true;
    }
  }
  return true;
}

void Console::takeUnfinished() {
  const std::string line = std::exchange(m_unfinished, {});
  if (!std::exchange(m_tooLong, false)) return m_onLine(line);
  std::fprintf(stderr, "a command of more than %zu KiB was dropped\n", kLongestLine >> 10U);
}

void Console::takeLine(const char* line) {
  if (line == nullptr) {
    m_ended = true;
    return;
  }
  if (*line != '\0') add_history(line);
  m_onLine(line);
  // The library edits one line and lets go of the terminal.
  rl_callback_handler_install(kPrompt, handleLine);
}

void Console::printWaiting() {
  m_wake.clear();
  std::string text;
  {
    const std::lock_guard lock(m_mutex);
    text.swap(m_waiting);
  }
  if (text.empty()) return;
  std::printf("\r\033[K%s", text.c_str());
  std::fflush(stdout);
  rl_forced_update_display();
}

}  // namespace lumsar::host
