#include "chain/chain.h"

#include <sys/stat.h>

#include "support/text.h"

namespace lumsar::test {
namespace {

constexpr const char* kCamera = "test:Front";
constexpr milliseconds kLook{10};

}  // namespace

const char* nameOf(Part part) {
  static constexpr std::array names{"service", "host", "agent", "line"};
  return names[static_cast<std::size_t>(part)];
}

Chain::Chain(Setup setup) : m_setup(std::move(setup)) {
  mkdir(disk().c_str(), S_IRWXU);
}

bool Chain::soon(const std::function<bool()>& condition, milliseconds limit) const {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  while (watch(), !condition()) {
    if (std::chrono::steady_clock::now() >= deadline) return condition();
    std::this_thread::sleep_for(kLook);
  }
  return true;
}

Process::Words Chain::commandOf(Part part) const {
  const std::string line = m_directory / "line.sock";
  const std::string agent = m_directory / "vm.sock";
  switch (part) {
    case Part::Service:
      return {m_setup.bin + "/lumsar-camera-service", "--camera",
              std::string(kCamera) + ",320x240@30"};
    case Part::Host:
      return {m_setup.bin + "/lumsar-host", "--protocol", m_setup.protocol, "--vm", "unix:" + line};
    case Part::Line:
      return {m_setup.self, "line", line, agent};
    case Part::Agent:
      break;
  }
  Process::Words words{m_setup.bin + "/lumsar-agent",
                       "--protocol",
                       m_setup.protocol,
                       "--listen",
                       "unix:" + agent,
                       "--status-file",
                       m_directory / "vm.json",
                       "--discard",
                       "--json"};
  if (m_setup.saves) words.insert(words.end(), {"--save", disk()});
  return words;
}

void Chain::start(Part part) {
  std::unique_ptr<Process>& process = m_parts[index(part)];
  if (process) m_earlierLogs[index(part)] += process->output();
  process.reset();
  ProcessSetup setup{.environment = m_setup.environment};
  setup.environment["XDG_RUNTIME_DIR"] = directory();
  setup.environment["LUMSAR_FAULTS_FILE"] = m_directory / std::string(nameOf(part)) + ".faults";
  setup.input = part == Part::Host || part == Part::Line;
  process = std::make_unique<Process>(commandOf(part), setup);
}

std::string Chain::logOf(Part part) {
  const auto& process = m_parts[index(part)];
  return m_earlierLogs[index(part)] + (process ? process->output() : "");
}

bool Chain::share() {
  const std::string command = std::string("share ") + kCamera;
  Process& host = of(Part::Host);
  return soon([&] {
    const int answers = host.countOf(command + ": ");
    const int done = host.countOf(command + ": done");
    type(command);
    soon([&] { return host.countOf(command + ": ") > answers || !host.running(); });
    return host.countOf(command + ": done") > done || !host.running();
  });
}

int Chain::framesPassed() {
  return of(Part::Line).countOf("frame\n");
}

bool Chain::framesFlow(int count) {
  const int before = framesPassed();
  return soon([&] { return framesPassed() >= before + count; });
}

bool Chain::agentShowsNone() const {
  const std::string status = readFile(m_directory / "vm.json");
  return has(status, "\"cameras\":[") && !has(status, "\"present\":true");
}

void Chain::holdNext(CameraDataKind kind) {
  of(Part::Line).write("hold " + std::to_string(static_cast<int>(kind)) + "\n");
  soon([&] { return of(Part::Line).countOf("will hold") > 0; });
}

std::vector<std::string> Chain::socketsLeft() const {
  std::vector<std::string> left;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(directory())) {
    if (entry.is_socket() && entry.path().filename() != "line.sock") left.push_back(entry.path());
  }
  return left;
}

}  // namespace lumsar::test
