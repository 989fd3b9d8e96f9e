// The one loop. Made and run by main.
// Bound to the channel's thread.
#include "app/program.h"

#include <poll.h>

#include <algorithm>
#include <utility>

#include "app/log.h"
#include "app/status.h"
#include "outputs/discard_output.h"
#include "outputs/save_output.h"
#include "outputs/v4l2/video_output.h"
#include "transport/device_transport.h"
#include "transport/listening_transport.h"

namespace lumsar::agent {
namespace {

using namespace std::chrono_literals;

constexpr auto kUpdateEvery = 200ms;
constexpr auto kShowEvery = 500ms;
constexpr auto kWriteEvery = 1s;
constexpr std::size_t kMostPeers = 16;
constexpr auto kFinishLimit = 10s;

}  // namespace

Program::Program(Options options, std::unique_ptr<Transport> host)
    : m_options(std::move(options)), m_gallery(openOutputs(), [this] { m_wakeup.wake(); }) {
  if (!host) host = openTransport();
  if (host) {
    m_peers.push_back(std::make_unique<Peer>(std::move(host), m_options.link, m_gallery));
  }
  if (m_options.view) m_viewer = std::make_unique<Viewer>(*m_options.view, m_hub);
  if (!m_options.direct.empty()) {
    m_direct = Address::parse(m_options.direct).listen();
    logInfo("waiting for camera services on ", localAddress(m_direct.get()));
  }
}

Program::~Program() = default;

std::vector<std::unique_ptr<Output>> Program::openOutputs() {
  std::vector<std::unique_ptr<Output>> outputs;
  if (!m_options.save.empty()) {
    outputs.push_back(std::make_unique<SaveOutput>(m_options.save, SaveAs::Pictures));
  }
  if (!m_options.saveMovie.empty()) {
    outputs.push_back(std::make_unique<SaveOutput>(m_options.saveMovie, SaveAs::Movie));
  }
  if (!m_options.videoDevices.empty()) {
    outputs.push_back(std::make_unique<VideoOutput>(kernelVideoSystem(), m_options.videoDevices));
  }
  if (m_options.view) outputs.push_back(std::make_unique<ViewOutput>(m_hub));
  if (m_options.discard) outputs.push_back(std::make_unique<DiscardOutput>());
  if (outputs.empty()) {
    logWarning("pictures go nowhere, so no camera will run; see --help for --view, --save, --v4l2");
  }
  return outputs;
}

std::unique_ptr<Transport> Program::openTransport() const {
  if (!m_options.listen.empty()) {
    return std::make_unique<ListenTransport>(Address::parse(m_options.listen));
  }
  if (!m_options.device.empty()) {
    return std::make_unique<DeviceTransport>([path = m_options.device] { return path; },
                                             "device " + m_options.device);
  }
  if (!m_options.port.empty()) {
    return std::make_unique<DeviceTransport>(
        [name = m_options.port] { return findVirtioPort(name); }, "virtio port " + m_options.port);
  }
  return nullptr;
}

bool Program::run(int endSignal) {
  while (turn(endSignal)) update();
  for (const auto& peer : m_peers) peer->finish();
  const bool written = m_gallery.finish(kFinishLimit);
  m_viewer.reset();
  writeStatusFile();
  return written;
}

void Program::stop() {
  m_stop = true;
  m_wakeup.wake();
}

// Waits for something and handles it. False when it is time to end.
bool Program::turn(int endSignal) {
  std::vector<pollfd> fds{{endSignal, POLLIN, 0},
                          {m_wakeup.descriptor(), POLLIN, 0},
                          {m_peers.size() < kMostPeers ? m_direct.get() : -1, POLLIN, 0}};
  const std::size_t firstPeer = fds.size();
  for (const auto& peer : m_peers) fds.push_back(peer->wanted());
  if (poll(fds.data(), fds.size(), waitMs()) < 0) return !m_stop;
  if (fds[1].revents != 0) m_wakeup.clear();
  if (fds[0].revents != 0 || m_stop) return false;
  for (std::size_t i = 0; i + firstPeer < fds.size(); ++i) {
    m_peers[i]->handle(fds[i + firstPeer].revents);
  }
  if (fds[2].revents != 0) acceptDirect();
  return !m_options.runFor || Clock::now() - m_begin < *m_options.runFor;
}

int Program::waitMs() const {
  using std::chrono::milliseconds;
  auto wait = milliseconds(kUpdateEvery);
  if (m_options.runFor) {
    const auto left = *m_options.runFor - (Clock::now() - m_begin);
    wait = std::min(wait, std::chrono::ceil<milliseconds>(left));
  }
  return static_cast<int>(std::max<std::int64_t>(0, wait.count()));
}

void Program::acceptDirect() {
  base::UniqueFd connection(accept4(m_direct.get(), nullptr, nullptr, SOCK_CLOEXEC));
  if (!connection) return;
  LinkSettings settings;
  settings.session = m_options.link.session;
  settings.helloPatience = m_options.link.helloPatience;
  const std::string name = text("service ", ++m_directCount);
  logInfo(name, ": connected");
  auto transport = std::make_unique<SocketTransport>(std::move(connection), name);
  m_peers.push_back(std::make_unique<Peer>(std::move(transport), settings, m_gallery));
}

void Program::update() {
  const auto now = Clock::now();
  for (const auto& peer : m_peers) peer->update(now);
  std::erase_if(m_peers, [](const auto& peer) { return peer->over(); });
  m_gallery.update();
  if (m_viewer && now - m_shown >= kShowEvery) {
    m_shown = now;
    m_hub->setStatus(statusJson());
  }
  if (now - m_written >= kWriteEvery) {
    m_written = now;
    writeStatusFile();
  }
}

void Program::writeStatusFile() {
  if (m_options.statusFile.empty()) return;
  if (replaceFile(m_options.statusFile, statusJson() + "\n")) return;
  if (std::exchange(m_saidStatusFails, true)) return;
  logError("cannot write the status file ", m_options.statusFile, ": ", systemError(),
           "; going on without it");
}

std::string Program::statusJson() const {
  Status status;
  status.kind = m_options.link.kind == LinkKind::Rdp ? "rdp" : "spice";
  status.seconds = std::chrono::duration<double>(Clock::now() - m_begin).count();
  status.direct = directAddress();
  status.viewPort = viewPort();
  status.cameras = m_gallery.gone();
  for (const auto& peer : m_peers) {
    status.peers.push_back(peer->status());
    peer->appendStatus(status.cameras);
  }
  return toJson(status);
}

}  // namespace lumsar::agent
