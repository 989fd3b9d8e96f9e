// What does a frame cost on its way from the camera service to the guest agent, through the host
// and the plug-in, and how much later does it come? The floor is two hops of bare sockets that copy
// whole messages at the same rate.
#include <csignal>
#include <numeric>
#include <regex>
#include <stdexcept>
#include <thread>

#include "harness/flow.h"
#include "harness/rows.h"
#include "support/process.h"
#include "support/temporary_directory.h"

namespace lumsar::bench {
namespace {

using test::Process;
using Micros = std::chrono::duration<double, std::micro>;

// The service is one without cameras; host and guest agent are the programs.
class Chain {
 public:
  explicit Chain(Pace pace)
      : m_service([this, pace] { serveFrames(m_directory / "lumsar/lumsar.sock", pace, *m_flow); }),
        m_agent({LUMSAR_BIN "/lumsar-agent", "--listen", socket(), "--discard", "--json"}),
        m_host({LUMSAR_BIN "/lumsar-host", "--vm", socket(), "--exec", "share bench", "--duration",
                "1h"},
               {.environment = {{"XDG_RUNTIME_DIR", m_directory.path()}}}) {}

  Nanoseconds used() const {
    return m_service.used() + processorTime(m_agent.id()) + processorTime(m_host.id());
  }
  Flow& flow() const { return *m_flow; }
  std::string logs() { return m_host.output() + m_agent.output(); }
  // A number of the agent's summary, which ends it.
  double ofSummary(const std::string& name) {
    m_agent.stop(SIGTERM);
    std::smatch found;
    if (!std::regex_search(m_agent.output(), found, std::regex('"' + name + "\":([0-9]+)"))) {
      throw std::runtime_error("the agent's summary lacks " + name + ":\n" + logs());
    }
    return std::stod(found[1]);
  }

 private:
  std::string socket() const { return "unix:" + m_directory / "vm.sock"; }

  const test::TemporaryDirectory m_directory;
  const SharedFlow m_flow;
  const Child m_service;
  Process m_agent;
  Process m_host;
};

void waitFor(const std::atomic<std::uint64_t>& frames, std::uint64_t count) {
  if (!test::eventually([&] { return frames >= count; }, std::chrono::minutes(1))) {
    throw std::runtime_error("the frames do not flow");
  }
}

// Processor time of all three for each frame, over some seconds.
template <class Flowing>
double costOf(Pace pace) {
  const Flowing flowing(pace);
  const auto rate = static_cast<std::uint64_t>(pace.perSecond);
  waitFor(flowing.flow().sent, rate);
  const Nanoseconds used = flowing.used();
  const std::uint64_t sent = flowing.flow().sent;
  waitFor(flowing.flow().sent, sent + 3 * rate);
  return Micros(flowing.used() - used).count() / static_cast<double>(flowing.flow().sent - sent);
}

constexpr Pace kCalm{.size = 100'000, .perSecond = 30, .frames = 100};

std::vector<std::uint64_t> bareLatencies() {
  const BareHops hops(kCalm);
  waitFor(hops.flow().received, kCalm.frames);
  std::vector<std::uint64_t> all(hops.flow().latency.begin(),
                                 hops.flow().latency.begin() + kCalm.frames);
  std::ranges::sort(all);
  return all;
}

double latencyHere(const std::string& name) {
  Chain chain(kCalm);
  waitFor(chain.flow().sent, kCalm.frames);
  return chain.ofSummary(name);
}

std::vector<Row> rows() {
  const auto cost = [](const char* name, Pace pace, double limit) {
    return Row{name,
               "us CPU",
               [=] { return costOf<BareHops>(pace); },
               [=] { return costOf<Chain>(pace); },
               limit,
               5};
  };
  return {
      cost("chain: frame of 100 KB, 100 a second", {.size = 100'000, .perSecond = 100}, 1.25),
      cost("chain: frame of 1 MB, 60 a second", {.size = 1'000'000, .perSecond = 60}, 1.15),
      {"chain: latency, 100 KB at 30 a second, median", "us",
       [] { return static_cast<double>(bareLatencies()[kCalm.frames / 2]); },
       [] { return latencyHere("latencyMedian"); }, 1.3, 5},
      {"chain: latency, the worst of 100 frames", "us",
       [] { return static_cast<double>(bareLatencies().back()); },
       [] { return latencyHere("latencyWorst"); }, kNoLimit, 5},
  };
}

}  // namespace
}  // namespace lumsar::bench

int main(int argc, char** argv) {
  return lumsar::bench::runRows(argc, argv, lumsar::bench::rows());
}
