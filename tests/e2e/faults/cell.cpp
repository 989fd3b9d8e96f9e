#include "faults/cell.h"

#include <csignal>
#include <optional>
#include <regex>
#include <sstream>
#include <stdexcept>

#include "base/text/format.h"
#include "support/text.h"

namespace lumsar::test {
namespace {

// Statuses from here on are those of processes that were killed.
constexpr int kKilledBy = 128;

void require(bool condition, const std::string& what) {
  if (!condition) throw std::runtime_error(what);
}

using Clock = std::chrono::steady_clock;

class Session {
 public:
  Session(const Cell& cell, const Programs& programs)
      : m_cell(cell),
        m_chain({.bin = programs.bin,
                 .self = programs.self,
                 .protocol = cell.protocol,
                 .saves = cell.fault != nullptr && cell.fault->needsDisk,
                 .environment = environmentFor(cell, programs)}) {
    if (m_cell.fault != nullptr && m_cell.fault->needsDisk) m_disk.emplace(m_chain);
    prepareOrders(m_chain);
    for (const Part part : {Part::Service, Part::Agent, Part::Line}) m_chain.start(part);
    require(m_chain.of(Part::Service).says("is plugged in"), "the service does not start");
    require(m_chain.of(Part::Agent).says("waiting for a host"), "the agent does not start");
  }

  // Up to the stage's middle, then the fault.
  void disturb() {
    const bool startsHost = m_cell.stage == Stage::Connecting;
    if (startsHost && m_cell.part != Part::Host) {
      beginFault();
      m_chain.start(Part::Host);
    } else {
      reach();
      beginFault();
    }
    if (m_cell.fault == nullptr) return;
    // The chain goes on under the fault.
    if (isHeld()) m_chain.goOn();
    m_chain.soon([] { return false; }, m_cell.fault->lasts);
    m_cell.fault->end(m_chain, m_cell.part);
    m_faultEnded = Clock::now();
    restartEnded();
  }

  // What the stage leads to comes about, with no more help than starting again what has ended.
  void recover() {
    if (m_cell.fault == nullptr) m_faultEnded = Clock::now();
    if (m_cell.fault == nullptr && isHeld()) m_chain.goOn();
    if (m_cell.stage == Stage::Leaving) {
      const int status = m_chain.of(Part::Host).wait();
      require(m_hostEnded || (status >= 0 && status < kKilledBy), "the host does not leave");
    } else {
      const bool sharesAgain = m_hostEnded || m_cell.stage < Stage::Sharing ||
                               m_cell.stage == Stage::Unsharing || wasRefused();
      if (m_cell.stage == Stage::Unsharing) {
        require(m_chain.soon([this] { return m_chain.agentShowsNone(); }),
                "the camera stays in the VM");
      }
      require(m_chain.soon([this] { return m_chain.answered(); }), "the VM does not answer");
      require(!sharesAgain || m_chain.share(), "the camera cannot be shared");
      require(m_chain.framesFlow(), "no frames after the fault");
    }
    m_recovery = std::chrono::duration_cast<milliseconds>(Clock::now() - m_faultEnded);
  }

  void nextSession() {
    if (m_chain.of(Part::Host).running()) {
      m_chain.type("quit");
      require(m_chain.of(Part::Host).wait() >= 0, "the host does not leave");
    }
    m_chain.start(Part::Host);
    require(m_chain.soon([this] { return m_chain.answered(); }), "no answer to the next session");
    require(m_chain.share(), "the next session cannot share");
    require(m_chain.framesFlow(), "no frames in the next session");
    require(!m_disk || savesAgain(), "the next session does not save");
    m_chain.type("quit");
    require(m_chain.of(Part::Host).wait() == 0, "the next session's host fails");
    for (const Part part : {Part::Agent, Part::Service}) {
      require(m_chain.of(part).stop(SIGTERM) == 0,
              base::text("the {} does not end well", nameOf(part)));
    }
    const std::string log = m_chain.logOf(Part::Agent);
    require(occurrences(log, "\"badPictures\":") == occurrences(log, "\"badPictures\":0,"),
            "the VM has got damaged frames");
    require(m_chain.socketsLeft().empty(), "a socket is left behind");
  }

  Outcome outcome(const std::string& wrong) {
    Outcome outcome{.wrong = wrong, .recovery = m_recovery, .lines = m_lines};
    for (const Part part : {Part::Service, Part::Host, Part::Agent}) {
      if (wrong.empty()) break;
      outcome.logs += base::text("--- {}:\n{}\n", nameOf(part), m_chain.logOf(part));
    }
    return outcome;
  }

 private:
  static std::map<std::string, std::string> environmentFor(const Cell& cell,
                                                           const Programs& programs) {
    if (cell.fault == nullptr || !cell.fault->needsPreload) return {};
    return {{"LD_PRELOAD", programs.preload}};
  }

  bool isHeld() const {
    return m_cell.stage == Stage::Sharing || m_cell.stage == Stage::InAFrame ||
           m_cell.stage == Stage::Unsharing;
  }

  void hold(CameraDataKind kind, const std::string& command = {}) {
    m_chain.holdNext(kind);
    if (!command.empty()) m_chain.type(command);
    require(m_chain.soon([this] { return m_chain.holds(); }), "the stage is not reached");
  }

  void reach() {
    m_chain.start(Part::Host);
    if (m_cell.stage == Stage::Connecting) {
      require(m_chain.soon([this] { return !m_chain.of(Part::Host).output().empty(); }), "no host");
      return;
    }
    require(m_chain.soon([this] { return m_chain.answered(); }), "no session to disturb");
    if (m_cell.stage == Stage::Listing) return m_chain.type("list");
    if (m_cell.stage == Stage::Sharing) return hold(CameraDataKind::Announced, "share test:Front");
    require(m_chain.share() && m_chain.framesFlow(), "no frames to disturb");
    if (m_cell.stage == Stage::InAFrame) hold(CameraDataKind::Frame);
    if (m_cell.stage == Stage::Unsharing) hold(CameraDataKind::Removed, "unshare test:Front");
    if (m_cell.stage == Stage::Leaving) m_chain.type("quit");
  }

  void beginFault() {
    m_faultBegan = Clock::now();
    // Of an undisturbed session all lines: they are the ordinary ones.
    if (m_cell.fault != nullptr) {
      for (const Part part : kParts) m_logged[part] = m_chain.logOf(part).size();
    }
    m_chain.watch = [this] { readLogs(); };
    if (m_cell.fault == nullptr) return;
    m_cell.fault->begin(m_chain, m_cell.part);
  }

  void restartEnded() {
    for (const Part part : kParts) {
      Process& process = m_chain.of(part);
      if (process.running()) continue;
      const int status = process.wait();
      if (part == Part::Host && m_cell.stage == Stage::Leaving && status < kKilledBy) continue;
      note(describeEnd(part, status));
      require(status < kKilledBy || status == kKilledBy + SIGKILL || m_cell.fault->mayCrash,
              describeEnd(part, status));
      m_hostEnded |= part == Part::Host;
      if (part != Part::Host || m_cell.stage != Stage::Leaving) m_chain.start(part);
    }
  }

  static std::string describeEnd(Part part, int status) {
    return status < kKilledBy
               ? base::text("{} ends with status {}", nameOf(part), status)
               : base::text("{} ends by signal {}", nameOf(part), status - kKilledBy);
  }

  // A share that the host has not done is the user's to repeat.
  bool wasRefused() {
    const std::string log = m_chain.logOf(Part::Host);
    return occurrences(log, "share test:Front: ") > occurrences(log, "share test:Front: done");
  }

  bool savesAgain() const {
    const std::filesystem::path disk = m_chain.disk();
    for (const auto& saved : std::filesystem::directory_iterator(disk)) remove(saved.path());
    return m_chain.soon([&] { return !std::filesystem::is_empty(disk); });
  }

  // All complete lines that are new, without what differs from session to session.
  void readLogs() {
    static const std::regex time("^(..:..:..\\.... |lumsar-[a-z-]*: )+");
    static const std::regex number("[0-9]+");
    for (const Part part : {Part::Service, Part::Host, Part::Agent}) {
      const std::string log = m_chain.logOf(part);
      std::size_t& from = m_logged[part];
      for (auto end = log.find('\n', from); end != log.npos; end = log.find('\n', from)) {
        std::string line = std::regex_replace(log.substr(from, end - from), time, "");
        from = end + 1;
        const std::string here = m_chain.directory();
        if (const auto at = line.find(here); at != line.npos) line.replace(at, here.size(), "...");
        note(base::text("{}: {}", nameOf(part), std::regex_replace(line, number, "N")));
      }
    }
  }

  void note(const std::string& line) {
    m_lines.emplace_back(line,
                         std::chrono::duration_cast<milliseconds>(Clock::now() - m_faultBegan));
  }

  const Cell& m_cell;
  Chain m_chain;
  std::optional<SmallDisk> m_disk;
  std::map<Part, std::size_t> m_logged;
  std::vector<SeenLine> m_lines;
  bool m_hostEnded = false;
  Clock::time_point m_faultBegan;
  Clock::time_point m_faultEnded;
  milliseconds m_recovery{};
};

}  // namespace

const char* nameOf(Stage stage) {
  static constexpr std::array names{"connecting", "listing",    "sharing", "streaming",
                                    "in a frame", "un-sharing", "leaving"};
  return names[static_cast<std::size_t>(stage)];
}

std::string Cell::name() const {
  return base::text("{} / {} / {} / {}", protocol, nameOf(stage), nameOf(part),
                    fault == nullptr ? "undisturbed" : fault->name);
}

Outcome run(const Cell& cell, const Programs& programs) {
  Session session(cell, programs);
  std::string wrong;
  try {
    session.disturb();
    session.recover();
    session.nextSession();
  } catch (const std::exception& error) {
    wrong = error.what();
  }
  return session.outcome(wrong);
}

}  // namespace lumsar::test
