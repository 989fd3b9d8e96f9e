#include "soak/soak_chain.h"

#include <regex>

#include "base/text/format.h"

namespace lumsar::test {
namespace {

namespace fs = std::filesystem;

constexpr const char* kSynthetic = "test:Front";
constexpr const char* kFile = "file:Still.jpg";

// The sum of all values of this name in JSON.
long sumOf(const std::string& text, const std::string& name) {
  const std::regex value("\"" + name + "\":([0-9]+)");
  long sum = 0;
  for (std::sregex_iterator found(text.begin(), text.end(), value), end; found != end; ++found) {
    sum += std::stol((*found)[1]);
  }
  return sum;
}

}  // namespace

SoakChain::SoakChain(std::string bin, std::string protocol, std::string still)
    : m_bin(std::move(bin)), m_protocol(std::move(protocol)), m_still(std::move(still)) {
  for (const char* name : {"service", "host", "host/lumsar", "plug"}) {
    fs::create_directory(m_directory / name);
    fs::permissions(m_directory / name, fs::perms::owner_all);
  }
  m_towardsService = std::make_unique<Relay>(
      m_directory / "host/lumsar/lumsar.sock", m_directory / "service/lumsar/lumsar.sock",
      Relay::Observed::ToClient, [this](View message, const RawPeer& host) {
        ledger.onSent(message);
        return host.send(message);
      });
  m_towardsAgent = std::make_unique<Relay>(m_directory / "line.sock", m_directory / "vm.sock",
                                           Relay::Observed::ToServer,
                                           [this](View message, const RawPeer& agent) {
                                             ledger.onArrived(message);
                                             return agent.send(message);
                                           });
  plug();
}

Process::Words SoakChain::commandOf(Part part) const {
  if (part == Part::Service) {
    return {m_bin + "/lumsar-camera-service", "--camera", std::string(kSynthetic) + ",320x240@10",
            "--watch", m_directory / "plug"};
  }
  if (part == Part::Host) {
    return {m_bin + "/lumsar-host",
            "--json",
            "--protocol",
            m_protocol,
            "--vm",
            "unix:" + (m_directory / "line.sock")};
  }
  return {m_bin + "/lumsar-agent",
          "--json",
          "--protocol",
          m_protocol,
          "--listen",
          "unix:" + (m_directory / "vm.sock"),
          "--discard"};
}

void SoakChain::start(Part part) {
  forget(part);
  ProcessSetup setup;
  setup.environment["XDG_RUNTIME_DIR"] =
      m_directory / std::string(part == Part::Service ? "service" : "host");
  setup.input = part == Part::Host;
  m_parts[part] = std::make_unique<Process>(commandOf(part), setup);
}

void SoakChain::forget(Part part) {
  if (!m_parts.contains(part)) return;
  const std::string& output = m_parts[part]->output();
  if (part == Part::Host) m_dropped += sumOf(output, "dropped");
  if (part == Part::Agent) m_damaged += sumOf(output, "badPictures");
  m_parts.erase(part);
}

void SoakChain::noteDropped() {
  Process& host = of(Part::Host);
  static const std::regex dropped("\"dropped\": ([0-9]+)");
  const std::size_t before = host.output().size();
  host.write("status\n");
  std::smatch found;
  std::string answer;
  const bool told = eventually([&] {
    answer = host.output().substr(before);
    return std::regex_search(answer, found, dropped);
  });
  if (told) m_dropped += std::stol(found[1]);
}

std::string SoakChain::logs() const {
  constexpr std::size_t kEnd = 2000;
  std::string text;
  for (const auto& [part, process] : m_parts) {
    const std::string& log = process->output();
    text += base::text("--- {} {}:\n{}\n", m_protocol, nameOf(part),
                       log.substr(log.size() - std::min(log.size(), kEnd)));
  }
  return text;
}

void SoakChain::share() {
  for (const std::string camera : {kSynthetic, kFile})
    of(Part::Host).write("share " + camera + "\n");
}

void SoakChain::plug() {
  // In one step, as half a file is not a camera.
  fs::copy_file(m_still, m_directory / "Still.jpg", fs::copy_options::overwrite_existing);
  fs::rename(m_directory / "Still.jpg", m_directory / "plug/Still.jpg");
}

void SoakChain::unplug() {
  fs::remove(m_directory / "plug/Still.jpg");
}

bool SoakChain::isPlugged() const {
  return fs::exists(m_directory / "plug/Still.jpg");
}

long SoakChain::framesOfEach() const {
  const long synthetic = ledger.arrivedFrom(kSynthetic);
  return isPlugged() ? std::min(synthetic, ledger.arrivedFrom(kFile)) : synthetic;
}

}  // namespace lumsar::test
