#include "soak/soak.h"

#include <unistd.h>

#include <csignal>
#include <iostream>
#include <stdexcept>

#include "base/text/format.h"

namespace lumsar::test {
namespace {

using std::chrono::steady_clock;

constexpr std::chrono::seconds kRecovery{30};
constexpr std::chrono::seconds kBetweenSamples{1};
constexpr milliseconds kLook{10};
// Of each camera between two disturbances, at 10 frames a second.
constexpr int kFramesBetween = 20;

class Interrupted {};

}  // namespace

Soak::Soak(const std::string& bin, const std::string& still, unsigned seed,
           const std::atomic<bool>& interrupted)
    : m_interrupted(interrupted),
      m_random(seed),
      m_spice(bin, "spice", still),
      m_rdp(bin, "rdp", still) {}

std::string Soak::run(std::chrono::milliseconds duration) {
  std::string wrong;
  try {
    for (SoakChain* chain : {&m_spice, &m_rdp}) begin(*chain);
    m_usages = {{"SPICE service", m_spice.of(Part::Service).id()},
                {"SPICE agent", m_spice.of(Part::Agent).id()},
                {"RDP host", m_rdp.of(Part::Host).id()}};
    awaitFrames(kFramesBetween, "the first frames");
    while (steady_clock::now() < m_begin + duration) {
      disturb();
      awaitFrames(kFramesBetween, "frames between two disturbances");
    }
  } catch (const Interrupted&) {
  } catch (const std::runtime_error& error) {
    wrong = error.what();
  }
  if (!wrong.empty()) return wrong;
  try {
    for (SoakChain* chain : {&m_spice, &m_rdp}) finish(*chain);
    checkUsage();
  } catch (const std::runtime_error& error) {
    wrong = error.what();
  }
  return wrong;
}

void Soak::begin(SoakChain& chain) {
  for (const Part part : {Part::Service, Part::Agent}) chain.start(part);
  await([&] { return chain.of(Part::Service).countOf("is plugged in") == 2; }, "two cameras");
  await([&] { return chain.of(Part::Agent).countOf("waiting for a host") == 1; }, "the agent");
  chain.start(Part::Host);
  await([&] { return chain.of(Part::Host).countOf("VM answered") == 1; }, "the VM's answer");
  chain.share();
}

void Soak::disturb() {
  switch (std::uniform_int_distribution(0, 6)(m_random)) {
    case 0:
      return restart(m_spice, Part::Host, SIGKILL);
    case 1:
      return restart(m_spice, Part::Host, SIGTERM);
    case 2:
      return restart(m_rdp, Part::Service, SIGKILL);
    case 3:
      return restart(m_rdp, Part::Agent, SIGKILL);
    case 4:
      return restart(m_rdp, Part::Agent, SIGTERM);
    case 5:
      return hotPlug(m_spice);
    default:
      return hotPlug(m_rdp);
  }
}

void Soak::restart(SoakChain& chain, Part part, int signal) {
  const std::string what = base::text("{} {} {}", chain.protocol(), nameOf(part),
                                      signal == SIGKILL ? "killed" : "restarted");
  ++m_disturbances[what];
  if (part == Part::Host && signal == SIGKILL) chain.noteDropped();
  chain.ledger.beginDisturbance();
  const int status = chain.of(part).stop(signal);
  if (signal == SIGTERM && status != 0) {
    throw std::runtime_error(base::text("{}: it ended with {}", what, status));
  }
  chain.start(part);
  if (part == Part::Host) {
    await([&] { return chain.of(part).countOf("VM answered") > 0; }, what);
    chain.share();
  }
  awaitFrames(1, what.c_str());
  chain.ledger.endDisturbance();
}

void Soak::hotPlug(SoakChain& chain) {
  ++m_disturbances[chain.protocol() + " hot-plug"];
  if (chain.isPlugged()) return chain.unplug();
  chain.plug();
}

// Nothing is disturbed any longer, so that all frames arrive. The last ones come before the answer
// to "list"; "unshare-all" does not wait for the service.
void Soak::finish(SoakChain& chain) {
  Process& host = chain.of(Part::Host);
  host.write("unshare-all\nlist\n");
  const auto soon = [](auto condition) { return eventually(condition, kRecovery); };
  if (!soon([&] { return host.countOf("list: done") > 0; })) {
    throw std::runtime_error("the service does not answer once the cameras are unshared");
  }
  soon([&] { return chain.ledger.counts().lostOtherwise <= chain.droppedByHosts(); });
  host.write("quit\n");
  if (host.wait() != 0) throw std::runtime_error("the host does not end well");
  for (const Part part : {Part::Agent, Part::Service}) {
    if (chain.of(part).stop(SIGTERM) != 0) {
      throw std::runtime_error(base::text("the {} does not end well", nameOf(part)));
    }
  }
  for (const Part part : {Part::Host, Part::Agent}) chain.forget(part);
  const Ledger::Counts counts = chain.ledger.counts();
  if (counts.wrong > 0) throw std::runtime_error(base::text("{} frames are wrong", counts.wrong));
  if (chain.damaged() > 0) throw std::runtime_error("the VM has got damaged frames");
  if (counts.lostOtherwise > chain.droppedByHosts()) {
    throw std::runtime_error(
        base::text("{}: {} frames were lost, {} of them dropped and counted:\n{}", chain.protocol(),
                   counts.lostOtherwise, chain.droppedByHosts(), counts.lost));
  }
}

void Soak::awaitFrames(int count, const char* what) {
  for (SoakChain* chain : {&m_spice, &m_rdp}) {
    const long before = chain->framesOfEach();
    await([&] { return chain->framesOfEach() >= before + count; },
          base::text("{}: {}", chain->protocol(), what));
  }
}

void Soak::await(const std::function<bool()>& condition, const std::string& what) {
  const auto deadline = steady_clock::now() + kRecovery;
  while (!condition()) {
    if (m_interrupted) throw Interrupted();
    const auto now = steady_clock::now();
    if (now >= deadline) throw std::runtime_error("this did not come: " + what);
    if (now >= m_nextSample) {
      m_nextSample = now + kBetweenSamples;
      for (Usage& usage : m_usages) usage.sample();
      showProgress();
    }
    std::this_thread::sleep_for(kLook);
  }
}

void Soak::checkUsage() const {
  for (const Usage& usage : m_usages) {
    if (const std::string wrong = usage.wrong(); !wrong.empty()) throw std::runtime_error(wrong);
  }
}

void Soak::showProgress() const {
  if (isatty(STDOUT_FILENO) == 0) return;
  const auto seconds =
      std::chrono::duration_cast<std::chrono::seconds>(steady_clock::now() - m_begin).count();
  std::cout << base::text("\r{} s, {} + {} frames\033[K", seconds, m_spice.ledger.counts().arrived,
                          m_rdp.ledger.counts().arrived)
            << std::flush;
}

std::string Soak::summary() const {
  std::string text = isatty(STDOUT_FILENO) != 0 ? "\n" : "";
  for (const SoakChain* chain : {&m_spice, &m_rdp}) {
    const Ledger::Counts counts = chain->ledger.counts();
    text += base::text(
        "{}: {} frames sent, {} arrived, {} wrong, {} lost in a disturbance, {} otherwise, {} "
        "dropped by the host\n",
        chain->protocol(), counts.sent, counts.arrived, counts.wrong, counts.lostWhile,
        counts.lostOtherwise, chain->droppedByHosts());
  }
  for (const auto& [what, count] : m_disturbances) text += base::text("{}: {}\n", what, count);
  for (const Usage& usage : m_usages) text += usage.summary() + "\n";
  return text;
}

}  // namespace lumsar::test
