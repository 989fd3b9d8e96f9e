// What do the programs cost while they do nothing: how long they take to start, what processor time
// and memory that needs, and how often they wake up while a camera is shared and nobody watches it?
#include <memory>
#include <stdexcept>
#include <thread>

#include "harness/child.h"
#include "harness/rows.h"
#include "support/process.h"
#include "support/temporary_directory.h"
#include "support/wake_ups.h"
#ifdef LUMSAR_RDP_RIG
#include "integration/rdp/rdp_server.h"
#endif

namespace lumsar::bench {
namespace {

using test::Process;
using Clock = std::chrono::steady_clock;
using Millis = std::chrono::duration<double, std::milli>;

// A whole chain of which one program, the last that was started, is looked at.
class Programs {
 public:
  double startedIn() const { return m_startedIn.count(); }
  const Process& latest() const { return *m_latest; }

  void service() {
    start(m_service, {LUMSAR_BIN "/lumsar-camera-service", "--camera", "test:Front,320x240@30"},
          "listening");
  }
  void agent(const std::string& protocol = "spice") {
    start(m_agent,
          {LUMSAR_BIN "/lumsar-agent", "--protocol", protocol, "--listen", socket(), "--view", "0"},
          "waiting for");
  }
  void host() {
    start(m_host,
          {LUMSAR_BIN "/lumsar-host", "--vm", socket(), "--exec", "share test:Front", "--duration",
           "1h"},
          "VM answered");
  }
#ifdef LUMSAR_RDP_RIG
  void rdpHost() {
    test::makeCertificate(m_directory.path(), "server");
    m_server = std::make_unique<test::RdpServer>(
        test::RdpServerSetup{.socket = m_directory / "rdp",
                             .certificate = m_directory / "server.crt",
                             .key = m_directory / "server.key",
                             .users = {}});
    start(m_host,
          {LUMSAR_BIN "/lumsar-rdp", "unix:" + m_directory / "rdp", "--ignore-certificate",
           "--duration", "1h"},
          "channel to the VM is open");
    // The server's part of the handshake.
    m_server->send(test::message(MSG_CHANNEL_OPENED));
    const auto hello = m_server->messages().nextOf(MSG_HELLO);
    if (!hello) throw std::runtime_error("no HELLO over RDP");
    test::View payload = test::View(*hello).subspan(kHeaderSize);
    m_server->send(test::helloAnswer({.token = take<HelloPayload>(payload)->token}));
  }
#endif

 private:
  std::string socket() const {
    return "unix:" + m_directory / "vm.sock";
  }
  void start(std::unique_ptr<Process>& process, const Process::Words& command,
             const std::string& ready) {
    const auto begin = Clock::now();
    process = std::make_unique<Process>(
        command, test::ProcessSetup{.environment = {{"XDG_RUNTIME_DIR", m_directory.path()},
                                                    {"HOME", m_directory.path()},
                                                    {"GST_REGISTRY", LUMSAR_GST_REGISTRY}}});
    if (!process->says(ready)) throw std::runtime_error(command[0] + ": " + process->output());
    m_startedIn = Clock::now() - begin;
    m_latest = process.get();
  }

  const test::TemporaryDirectory m_directory;
  Millis m_startedIn{};
  Process* m_latest = nullptr;
#ifdef LUMSAR_RDP_RIG
  std::unique_ptr<test::RdpServer> m_server;
#endif
  std::unique_ptr<Process> m_service;
  std::unique_ptr<Process> m_agent;
  std::unique_ptr<Process> m_host;
};

// Starts what the program needs, and the program last.
using Begin = void (*)(Programs&);

double wakeUpsASecond(Begin begin, Begin rest) {
  constexpr std::chrono::seconds kSettle{5};
  constexpr std::chrono::seconds kWindow{20};
  Programs programs;
  begin(programs);
  const pid_t process = programs.latest().id();
  rest(programs);
  std::this_thread::sleep_for(kSettle);
  const long before = test::wakeUps(process);
  std::this_thread::sleep_for(kWindow);
  return static_cast<double>(test::wakeUps(process) - before) /
         static_cast<double>(kWindow.count());
}

struct Program {
  std::string name;
  Begin begin;
  Begin rest;  // what makes the chain whole
};

std::vector<Program> programs() {
  std::vector<Program> all{{"camera service", [](Programs& p) { p.service(); },
                            [](Programs& p) {
                              p.agent();
                              p.host();
                            }},
                           {"host",
                            [](Programs& p) {
                              p.service();
                              p.agent();
                              p.host();
                            },
                            [](Programs&) {}},
                           {"guest agent",
                            [](Programs& p) {
                              p.service();
                              p.agent();
                            },
                            [](Programs& p) { p.host(); }}};
#ifdef LUMSAR_RDP_RIG
  all.push_back({"RDP host",
                 [](Programs& p) {
                   p.service();
                   p.rdpHost();
                 },
                 [](Programs&) {}});
#endif
  return all;
}

constexpr double kMostWakeUps = 0.2;

std::vector<Row> rows() {
  std::vector<Row> all;
  for (const auto& [name, begin, rest] : programs()) {
    const auto started = [begin = begin](double (*measure)(const Programs&)) {
      return [=] {
        Programs programs;
        begin(programs);
        return measure(programs);
      };
    };
    all.push_back({"idle: " + name + ", wake-ups",
                   "1/s",
                   {},
                   [begin = begin, rest = rest] { return wakeUpsASecond(begin, rest); },
                   kMostWakeUps,
                   1});
    all.push_back({"start: " + name,
                   "ms",
                   {},
                   started([](const Programs& p) { return p.startedIn(); }),
                   kNoLimit,
                   5});
    all.push_back(
        {"start: " + name + ", processor",
         "ms CPU",
         {},
         started([](const Programs& p) { return Millis(processorTime(p.latest().id())).count(); }),
         kNoLimit,
         5});
    all.push_back(
        {"start: " + name + ", own memory",
         "KiB",
         {},
         started([](const Programs& p) { return static_cast<double>(p.latest().ownMemory()); }),
         kNoLimit,
         5});
  }
  return all;
}

}  // namespace
}  // namespace lumsar::bench

int main(int argc, char** argv) {
  return lumsar::bench::runRows(argc, argv, lumsar::bench::rows());
}
