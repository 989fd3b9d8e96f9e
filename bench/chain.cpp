// What does a frame cost on its way from the camera service to the guest agent, through the host
// and the plug-in, and how much later does it come? The floor is two hops of bare sockets that copy
// whole messages at the same rate.
#include <csignal>
#include <memory>
#include <regex>
#include <stdexcept>
#include <thread>

#include "base/latency.h"
#include "feeds/flow.h"
#include "harness/rows.h"
#include "support/process.h"
#include "support/temporary_directory.h"

namespace lumsar::bench {
namespace {

using test::Process;
using Micros = std::chrono::duration<double, std::micro>;

// The service is one without cameras; hosts and guest agents are the programs.
class Chain {
 public:
  explicit Chain(Pace pace, int hosts = 1)
      : m_service(
            [this, pace] { serveFrames(m_directory / "lumsar/lumsar.sock", pace, *m_flow); }) {
    for (int i = 0; i < hosts; ++i) startHost("unix:" + m_directory / std::to_string(i));
  }

  Nanoseconds used() const {
    Nanoseconds sum = m_service.used();
    for (const auto& program : m_programs) sum += processorTime(program->id());
    return sum;
  }
  Flow& flow() const { return *m_flow; }
  // A number of the summary with which an agent ends, of the only one.
  double ofSummary(const std::string& name) const {
    Process& agent = *m_programs.front();
    agent.stop(SIGTERM);
    std::smatch found;
    if (!std::regex_search(agent.output(), found, std::regex('"' + name + "\":([0-9]+)"))) {
      throw std::runtime_error("the agent's summary lacks " + name + ":\n" + agent.output());
    }
    return std::stod(found[1]);
  }

 private:
  void startHost(const std::string& socket) {
    start({LUMSAR_BIN "/lumsar-agent", "--listen", socket, "--discard", "--json"});
    start({LUMSAR_BIN "/lumsar-host", "--vm", socket, "--exec", "share bench", "--duration", "1h"});
  }
  void start(const Process::Words& command) {
    m_programs.push_back(std::make_unique<Process>(
        command, test::ProcessSetup{.environment = {{"XDG_RUNTIME_DIR", m_directory.path()}}}));
  }

  const test::TemporaryDirectory m_directory;
  const SharedFlow m_flow;
  const Child m_service;
  std::vector<std::unique_ptr<Process>> m_programs;
};

void waitFor(const std::atomic<std::uint64_t>& frames, std::uint64_t count) {
  if (!test::eventually([&] { return frames >= count; }, std::chrono::minutes(1))) {
    throw std::runtime_error("the frames do not flow");
  }
}

// Processor time of all three for each frame, over some seconds.
template <class Flowing>
double costOf(const Flowing& flowing, std::uint64_t rate) {
  waitFor(flowing.flow().sent, rate);
  const Nanoseconds used = flowing.used();
  const std::uint64_t sent = flowing.flow().sent;
  waitFor(flowing.flow().sent, sent + 3 * rate);
  return Micros(flowing.used() - used).count() / static_cast<double>(flowing.flow().sent - sent);
}

constexpr double kMostGrowth = 1.1;
constexpr Pace kCalm{.size = 100'000, .perSecond = 30, .frames = 100};
constexpr Pace kMany{.size = 100'000, .perSecond = 100, .frames = 500};

double bareLatency(Pace pace, std::size_t percent) {
  const BareHops hops(pace);
  waitFor(hops.flow().received, pace.frames);
  base::Latencies latencies;
  for (std::size_t i = 0; i < pace.frames; ++i) latencies.add(hops.flow().latency[i]);
  return static_cast<double>(latencies.percentile(percent));
}

double latencyHere(Pace pace, const std::string& name) {
  const Chain chain(pace);
  waitFor(chain.flow().sent, pace.frames);
  return chain.ofSummary(name);
}

std::vector<Row> rows() {
  const auto cost = [](const char* name, Pace pace, double limit) {
    const auto rate = static_cast<std::uint64_t>(pace.perSecond);
    return Row{name,
               "us CPU",
               [=] { return costOf(BareHops(pace), rate); },
               [=] { return costOf(Chain(pace), rate); },
               limit,
               5};
  };
  // The same number of frames a second, of many against those of one.
  const auto growth = [](const char* name, int cameras, int hosts) {
    constexpr int kRate = 120;
    const auto costWith = [](int withCameras, int withHosts) {
      const Pace pace{
          .size = 100'000, .perSecond = kRate / (withCameras * withHosts), .cameras = withCameras};
      return [=] { return costOf(Chain(pace, withHosts), kRate); };
    };
    return Row{name, "us CPU", costWith(1, 1), costWith(cameras, hosts), kMostGrowth, 5};
  };
  return {
      cost("chain: frame of 100 KB, 100 a second", {.size = 100'000, .perSecond = 100}, 1.25),
      cost("chain: frame of 1 MB, 60 a second", {.size = 1'000'000, .perSecond = 60}, 1.15),
      {"chain: latency, 100 KB at 30 a second, median", "us", [] { return bareLatency(kCalm, 50); },
       [] { return latencyHere(kCalm, "latencyMedian"); }, 1.3, 5},
      {"chain: latency, 100 KB at 100 a second, 99th percentile", "us",
       [] { return bareLatency(kMany, 99); }, [] { return latencyHere(kMany, "latency99"); },
       kNoLimit, 5},
      growth("growth: a frame of 2 cameras against one's", 2, 1),
      growth("growth: a frame of 8 cameras against one's", 8, 1),
      growth("growth: a frame of 2 hosts against one's", 1, 2),
      growth("growth: a frame of 4 hosts against one's", 1, 4),
  };
}

}  // namespace
}  // namespace lumsar::bench

int main(int argc, char** argv) {
  return lumsar::bench::runRows(argc, argv, lumsar::bench::rows());
}
