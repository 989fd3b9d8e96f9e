#include "integration/vm/support/user_side.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>

#include "integration/vm/support/pictures.h"
#include "support/temporary_directory.h"

namespace lumsar::test {

using namespace std::chrono_literals;

UserSide::UserSide(const Path& parent)
    : m_directory(parent / ("user-" + std::to_string(++s_count))),
      m_record(m_directory / "pictures"),
      m_channel(m_directory / "cameras.sock") {
  std::filesystem::create_directories(m_directory);
  // What each program in the guest understands, and what is compared byte by byte.
  std::ofstream(m_directory / "config.json") << R"({"encode_type": "MJPG", "quality": "95"})";
}

bool UserSide::startService(const std::string& format) {
  m_service = std::make_unique<Process>(std::vector<std::string>{
      LUMSAR_BIN "/lumsar-camera-service", "--ipc-channel", m_channel.string(), "--camera",
      std::string(kCamera) + "," + format, "--verbose"});
  return eventually([this] { return std::filesystem::exists(m_channel); });
}

void UserSide::killService() {
  m_service->signal(SIGKILL);
  m_service->wait();
}

void UserSide::startHost(const std::string& address, const std::vector<std::string>& options) {
  std::vector<std::string> command{LUMSAR_BIN "/lumsar-spice",
                                   address,
                                   "--ipc-channel",
                                   m_channel.string(),
                                   "--ipc-library",
                                   LUMSAR_IPC_RECORDER,
                                   "--config",
                                   (m_directory / "config.json").string(),
                                   "--verbose",
                                   "--json"};  // for counter()
  command.insert(command.end(), options.begin(), options.end());
  m_host = std::make_unique<Process>(
      command, ProcessSetup{.environment = {{"LUMSAR_REAL_IPC", LUMSAR_REAL_IPC},
                                            {"LUMSAR_IPC_RECORD", m_record.string()}},
                            .input = true});
}

std::map<std::string, std::string> UserSide::hostEnvironment() const {
  return {{"LUMSAR_IPC_CHANNEL", m_channel.string()},
          {"LUMSAR_IPC_LIBRARY", LUMSAR_IPC_RECORDER},
          {"LUMSAR_REAL_IPC", LUMSAR_REAL_IPC},
          {"LUMSAR_IPC_RECORD", m_record.string()},
          {"LUMSAR_CONFIG", (m_directory / "config.json").string()}};
}

void UserSide::endHost() {
  if (m_host && m_host->running()) {
    m_host->signal(SIGTERM);
    EXPECT_EQ(m_host->wait(), 0);
  }
}

void UserSide::printOutput() {
  for (Process* process : {m_host.get(), m_service.get()}) {
    if (process != nullptr) std::printf("%s\n", process->output().c_str());
  }
}

bool UserSide::command(const std::string& line) {
  m_host->skipOutput();
  m_host->write(line + "\n");
  return m_host->expect(" " + line + ": done (0)");
}

long UserSide::counter(const std::string& name) {
  if (!command("status") || !m_host->expect("\n}\n")) return -1;
  const std::string key = "\"" + name + "\": ";
  const std::string text = m_host->output();
  const auto found = text.rfind(key);
  return found == std::string::npos ? -1 : std::atol(text.c_str() + found + key.size());
}

std::vector<std::string> UserSide::picturesSent() const {
  return pictureHashes(readFile(m_record));
}

}  // namespace lumsar::test
