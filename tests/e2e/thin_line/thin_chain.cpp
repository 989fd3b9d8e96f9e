#include "thin_line/thin_chain.h"

#include "support/text.h"

namespace lumsar::test {

ThinChain::ThinChain(Setup setup) : m_setup(std::move(setup)) {
  const std::string agent = m_directory / "vm.sock";
  const std::string line = m_directory / "line.sock";
  writeFile(m_directory / "policy.json",
            R"({"command":"setpolicy","policy":[{)" + m_setup.policy + "}]}");
  m_service.emplace(words("lumsar-camera-service", {"--camera", m_setup.camera}), environment());
  m_agent.emplace(words("lumsar-agent", {"--listen", "unix:" + agent, "--discard"}), environment());
  m_service->says("listening at");
  m_agent->says("waiting for");
  LineQuality quality = m_setup.line;
  quality.onArrival = [this](View bytes) { onArrival(bytes); };
  m_line.emplace(line, agent, quality);
  m_host.emplace(words("lumsar-host",
                       {"--vm", "unix:" + line, "--exec", "policy " + (m_directory / "policy.json"),
                        "--exec", "share " + m_setup.cameraId, "--duration", "1h"}),
                 environment());
}

Process::Words ThinChain::words(const std::string& program, Process::Words more) const {
  more.insert(more.begin(), m_setup.bin + "/" + program);
  return more;
}

ProcessSetup ThinChain::environment() const {
  return {.environment = {{"XDG_RUNTIME_DIR", m_directory.path()}}};
}

// There is one connection, so one thread at a time.
void ThinChain::onArrival(View bytes) {
  m_messages.append({bytes.data(), bytes.size()});
  for (View message = m_messages.next(); !message.empty(); message = m_messages.next()) {
    if (kindOf(message) != CameraDataKind::Frame) continue;
    View rest = message.subspan(kHeaderSize);
    const auto header = take<CameraDataHeader>(rest);
    const auto frame = take<CameraFrame>(rest);
    if (!frame) continue;
    const std::lock_guard lock(m_mutex);
    m_arrivals.push_back({cameraClock(), header->time, message.size(), *frame});
  }
}

std::vector<Arrival> ThinChain::arrivals() const {
  const std::lock_guard lock(m_mutex);
  return m_arrivals;
}

void ThinChain::clear() {
  const std::lock_guard lock(m_mutex);
  m_arrivals.clear();
}

std::string ThinChain::status(bool json) const {
  Process::Words options{"--status"};
  if (json) options.emplace_back("--json");
  Process process(words("lumsar-camera-service", options), environment());
  process.wait();
  return process.output();
}

std::string ThinChain::logs() {
  return m_service->output() + m_agent->output() + m_host->output();
}

}  // namespace lumsar::test
