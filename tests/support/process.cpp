#include "support/process.h"

#include <fcntl.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <system_error>

#include "support/text.h"

namespace lumsar::test {
namespace {

[[noreturn]] void fail(const char* what) {
  throw std::system_error(errno, std::generic_category(), what);
}

UniqueFd fileInMemory() {
  UniqueFd file(memfd_create("output", MFD_CLOEXEC));
  if (!file || fcntl(file.get(), F_SETFL, O_APPEND) != 0) fail("memfd");
  return file;
}

struct Ends {
  UniqueFd ours;
  UniqueFd theirs;
};

Ends inputPipe() {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) fail("pipe");
  return {UniqueFd(ends[1]), UniqueFd(ends[0])};
}

Ends terminal() {
  int ours = -1;
  int theirs = -1;
  const winsize size = {.ws_row = 40, .ws_col = 200, .ws_xpixel = 0, .ws_ypixel = 0};
  if (openpty(&ours, &theirs, nullptr, nullptr, &size) != 0) fail("terminal");
  for (const int end : {ours, theirs}) fcntl(end, F_SETFD, FD_CLOEXEC);
  fcntl(ours, F_SETFL, O_NONBLOCK);
  return {UniqueFd(ours), UniqueFd(theirs)};
}

Process::Words environmentWith(std::map<std::string, std::string> variables) {
  // The configuration of whoever runs the tests is none of theirs.
  variables.try_emplace("XDG_CONFIG_HOME", "/dev/null");
  Process::Words all;
  for (char** entry = environ; *entry != nullptr; ++entry) {
    const std::string line = *entry;
    if (!variables.contains(line.substr(0, line.find('=')))) all.push_back(line);
  }
  for (const auto& [name, value] : variables) {
    if (!value.empty()) all.push_back(name + "=" + value);
  }
  return all;
}

std::vector<char*> pointersTo(Process::Words& words) {
  std::vector<char*> pointers;
  for (std::string& word : words) pointers.push_back(word.data());
  pointers.push_back(nullptr);
  return pointers;
}

}  // namespace

Process::Process(const Words& command, const ProcessSetup& setup) {
  Words words = command;
  Words environment = environmentWith(setup.environment);
  const std::vector<char*> arguments = pointersTo(words);
  const std::vector<char*> variables = pointersTo(environment);
  Ends input{UniqueFd(), UniqueFd(open("/dev/null", O_RDONLY | O_CLOEXEC))};
  if (setup.input) input = inputPipe();
  if (setup.terminal) input = terminal();
  m_input = std::move(input.ours);
  m_output.file = setup.terminal ? UniqueFd(dup(m_input.get())) : fileInMemory();
  if (setup.errorsApart) m_errors.file = fileInMemory();

  m_id = fork();
  if (m_id < 0) fail("fork");
  if (m_id > 0) return;
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  setsid();
  const int out = setup.terminal ? input.theirs.get() : m_output.file.get();
  dup2(input.theirs.get(), STDIN_FILENO);
  dup2(out, STDOUT_FILENO);
  dup2(setup.errorsApart ? m_errors.file.get() : out, STDERR_FILENO);
  if (setup.terminal) ioctl(STDIN_FILENO, TIOCSCTTY, 0);
  if (setup.before) setup.before();
  execvpe(arguments[0], arguments.data(), variables.data());
  perror(arguments[0]);
  _exit(127);
}

Process::~Process() {
  signal(SIGKILL);
  if (!m_status) waitpid(m_id, nullptr, 0);
}

bool Process::running() {
  int status = 0;
  if (!m_status && waitpid(m_id, &status, WNOHANG) == m_id) {
    m_status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  }
  return !m_status;
}

void Process::signal(int number) {
  if (!running()) return;
  // Just started, it may not lead a group yet.
  if (kill(-m_id, number) != 0) kill(m_id, number);
}

int Process::wait(milliseconds limit) {
  // A full terminal would hold it up.
  return eventually([this] { return output(), !running(); }, limit) ? *m_status : -1;
}

void Process::write(const std::string& text) const {
  if (::write(m_input.get(), text.data(), text.size()) < 0) perror("writing to a process");
}

const std::string& Process::read(Stream& stream) {
  std::array<char, 65536> piece;
  const int file = stream.file.get();
  const auto more = [&] {
    const ssize_t size =
        pread(file, piece.data(), piece.size(), static_cast<off_t>(stream.text.size()));
    return size < 0 && errno == ESPIPE ? ::read(file, piece.data(), piece.size()) : size;
  };
  for (ssize_t size = more(); size > 0; size = more()) {
    stream.text.append(piece.data(), static_cast<std::size_t>(size));
  }
  return stream.text;
}

// Whether the condition, on what it has written, comes true before its end.
bool Process::writes(const std::function<bool()>& condition, milliseconds limit) {
  bool met = false;
  eventually(
      [&] {
        const bool ended = !running();
        met = condition();
        return met || ended;
      },
      limit);
  return met;
}

int Process::countOf(const std::string& text) {
  return occurrences(output(), text) + occurrences(errors(), text);
}

bool Process::says(const std::string& text, int times, milliseconds limit) {
  return writes([&] { return countOf(text) >= times; }, limit);
}

bool Process::expect(const std::string& text, milliseconds limit) {
  if (!writes([&] { return hasNext(text); }, limit)) return false;
  m_found = m_output.text.find(text, m_found) + text.size();
  return true;
}

bool Process::hasNext(const std::string& text) {
  return output().find(text, m_found) != std::string::npos;
}

long Process::memory(const char* name) const {
  std::ifstream status("/proc/" + std::to_string(m_id) + "/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with(name)) return std::atol(line.c_str() + line.find(':') + 1);
  }
  return 0;
}

milliseconds Process::processorTime() const {
  clockid_t clock{};
  timespec time{};
  if (clock_getcpuclockid(m_id, &clock) != 0 || clock_gettime(clock, &time) != 0) return {};
  return std::chrono::duration_cast<milliseconds>(std::chrono::seconds(time.tv_sec) +
                                                  std::chrono::nanoseconds(time.tv_nsec));
}

bool Process::isTerminalCooked() const {
  termios state{};
  return tcgetattr(m_input.get(), &state) == 0 &&
         (state.c_lflag & (ICANON | ECHO)) == (ICANON | ECHO);
}

}  // namespace lumsar::test
