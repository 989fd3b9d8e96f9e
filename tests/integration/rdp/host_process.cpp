#include "integration/rdp/host_process.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <stdexcept>

namespace lumsar_test {

namespace {

constexpr std::chrono::seconds kLongestEnd{20};

std::vector<std::string> environmentWith(const HostProcess::Variables& variables) {
  std::vector<std::string> result;
  for (char** entry = environ; *entry != nullptr; ++entry) {
    const std::string line = *entry;
    if (!variables.contains(line.substr(0, line.find('=')))) result.push_back(line);
  }
  for (const auto& [name, value] : variables) {
    if (!value.empty()) result.push_back(name + "=" + value);
  }
  return result;
}

std::vector<char*> pointersTo(std::vector<std::string>& words) {
  std::vector<char*> pointers;
  for (std::string& word : words) pointers.push_back(word.data());
  pointers.push_back(nullptr);
  return pointers;
}

}  // namespace

HostProcess::HostProcess(const Words& words, const Variables& variables) {
  Words arguments = words;
  Words environment = environmentWith(variables);
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&actions, ends[1], STDERR_FILENO);
  const int error = posix_spawn(&m_process, arguments[0].c_str(), &actions, nullptr,
                                pointersTo(arguments).data(), pointersTo(environment).data());
  posix_spawn_file_actions_destroy(&actions);
  close(ends[1]);
  if (error != 0) {
    close(ends[0]);
    throw std::runtime_error("cannot start " + arguments[0]);
  }
  m_reader = std::thread([this, file = ends[0]] { read(file); });
}

HostProcess::~HostProcess() {
  if (m_process > 0) {
    kill(m_process, SIGKILL);
    wait();
  }
}

void HostProcess::read(int pipe) {
  char buffer[8192];
  ssize_t size = 0;
  while ((size = ::read(pipe, buffer, sizeof buffer)) > 0) {
    const std::lock_guard lock(m_mutex);
    m_output.append(buffer, static_cast<std::size_t>(size));
    m_grown.notify_all();
  }
  close(pipe);
  const std::lock_guard lock(m_mutex);
  m_ended = true;
  m_grown.notify_all();
}

namespace {

int count(const std::string& output, const std::string& text) {
  int found = 0;
  for (auto at = output.find(text); at != std::string::npos; at = output.find(text, at + 1)) {
    ++found;
  }
  return found;
}

}  // namespace

bool HostProcess::says(const std::string& text, int times, std::chrono::milliseconds patience) {
  std::unique_lock lock(m_mutex);
  m_grown.wait_for(lock, patience, [&] { return m_ended || count(m_output, text) >= times; });
  return count(m_output, text) >= times;
}

int HostProcess::countOf(const std::string& text) const {
  const std::lock_guard lock(m_mutex);
  return count(m_output, text);
}

std::string HostProcess::output() const {
  const std::lock_guard lock(m_mutex);
  return m_output;
}

long HostProcess::peakMemory() const {
  std::ifstream status("/proc/" + std::to_string(m_process) + "/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with("VmHWM:")) return std::atol(line.c_str() + 6);
  }
  return 0;
}

std::chrono::milliseconds HostProcess::processorTime() const {
  clockid_t clock{};
  timespec time{};
  if (clock_getcpuclockid(m_process, &clock) != 0 || clock_gettime(clock, &time) != 0) return {};
  return std::chrono::duration_cast<std::chrono::milliseconds>(
      std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec));
}

int HostProcess::stop() {
  if (m_process > 0) kill(m_process, SIGINT);
  return wait();
}

int HostProcess::wait() {
  if (m_process > 0) {
    {
      std::unique_lock lock(m_mutex);
      if (!m_grown.wait_for(lock, kLongestEnd, [this] { return m_ended; })) {
        kill(m_process, SIGKILL);
      }
    }
    int status = 0;
    waitpid(m_process, &status, 0);
    m_process = -1;
    m_exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    m_reader.join();
  }
  return m_exitCode;
}

}  // namespace lumsar_test
