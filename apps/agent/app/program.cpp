#include "app/program.h"

#include <poll.h>

#include <algorithm>
#include <utility>

#include "base/deadline.h"
#include "base/log.h"
#include "base/system/files.h"
#include "outputs/discard_output.h"
#include "outputs/save_output.h"
#include "outputs/v4l2/video_output.h"
#include "outputs/web/page_key.h"
#include "transport/device_transport.h"
#include "transport/listening_transport.h"

namespace lumsar::agent {
namespace {

using namespace std::chrono_literals;

constexpr auto kFinishingInterval = 200ms;  // how often to look for sinks that have finished
constexpr auto kFileInterval = 1s;
constexpr std::size_t kMaxConnections = 16;
constexpr std::ptrdiff_t kMaxConnectionsPerHost = 8;
constexpr auto kFinishTimeout = 10s;

}  // namespace

Program::Program(Options options, std::unique_ptr<Transport> host,
                 std::unique_ptr<SinkFactory> pipewire)
    : m_options(std::move(options)),
      m_accessLine(protocol::readAccessLine(m_options.tokenFile)),
      m_end(m_options.runFor ? m_begin + *m_options.runFor : Clock::time_point::max()),
      m_gallery(openOutputs(std::move(pipewire)), [this] { m_wakeUp.wake(); }) {
  if (!host) host = openTransport();
  if (host) {
    m_connections.push_back(
        std::make_unique<Connection>(std::move(host), m_options.endpoint, m_gallery));
  }
  if (m_options.view) {
    const std::string key = m_options.viewKey.empty() ? newPageKey() : m_options.viewKey;
    m_viewer = std::make_unique<Viewer>(*m_options.view, key, m_hub);
  }
  if (!m_options.listenDirect.empty()) {
    m_direct.emplace(base::parseAddress(m_options.listenDirect), m_accessLine);
    base::logInfo("waiting for camera services on {}", m_direct->name());
  }
}

Program::~Program() = default;

std::vector<std::unique_ptr<SinkFactory>> Program::openOutputs(
    std::unique_ptr<SinkFactory> pipewire) {
  std::vector<std::unique_ptr<SinkFactory>> outputs;
  const bool decodes = pipewire || !m_options.videoDevices.empty();
  if (decodes && !Decoder::isUsable()) {
    base::logWarning(
        "frames are not decoded, as {} is not there or cannot run: programs get them as cameras "
        "send them, and "
        "few can show H264",
        Decoder::path());
  } else if (decodes && m_options.hardwareDecoding) {
    if (Decoder::useHardware()) {
      base::logInfo("H264 is decoded on the graphics device as far as that can");
    } else {
      base::logWarning("there is no graphics device for decoding (VA-API); the processor decodes");
    }
  }
  if (pipewire) outputs.push_back(std::move(pipewire));
  if (!m_options.save.empty()) {
    outputs.push_back(std::make_unique<SaveOutput>(m_options.save, SaveAs::Images));
  }
  if (!m_options.saveMjpeg.empty()) {
    outputs.push_back(std::make_unique<SaveOutput>(m_options.saveMjpeg, SaveAs::VideoFile));
  }
  if (!m_options.videoDevices.empty()) {
    outputs.push_back(std::make_unique<VideoOutput>(kernelVideoSystem(), m_options.videoDevices,
                                                    m_options.videoFormat));
  }
  if (m_options.view) outputs.push_back(std::make_unique<ViewOutput>(m_hub));
  if (m_options.discard) outputs.push_back(std::make_unique<DiscardOutput>());
  if (outputs.empty()) {
    base::logWarning(
        "frames go nowhere, so no camera will run; see --help for --view, --save, --v4l2 and "
        "--pipewire");
  }
  return outputs;
}

std::unique_ptr<Transport> Program::openTransport() const {
  if (!m_options.listen.empty()) {
    return std::make_unique<ListenTransport>(base::parseAddress(m_options.listen), m_accessLine);
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
  for (const auto& connection : m_connections) connection->finish();
  const bool written = m_gallery.finish(kFinishTimeout);
  m_viewer.reset();
  writeStatusFile();
  return written;
}

void Program::stop() {
  m_stop = true;
  m_wakeUp.wake();
}

// Waits for something and handles it. False when it is time to end.
bool Program::turn(int endSignal) {
  // Before it is known who can be waited for: a pause that ends in between lasts no longer.
  const int timeout = base::pollTimeout(due());
  const bool hasCapacity = m_direct && m_connections.size() < kMaxConnections;
  std::vector<pollfd> fds{{endSignal, POLLIN, 0},
                          {m_wakeUp.get(), POLLIN, 0},
                          {hasCapacity ? m_direct->descriptor() : -1, POLLIN, 0}};
  const std::size_t first = fds.size();
  for (const auto& connection : m_connections) fds.push_back(connection->pollRequest());
  if (poll(fds.data(), fds.size(), timeout) < 0) return !m_stop;
  if (fds[1].revents != 0) m_wakeUp.clear();
  if (fds[0].revents != 0 || m_stop) return false;
  for (std::size_t i = 0; i + first < fds.size(); ++i) {
    m_connections[i]->handle(fds[i + first].revents);
  }
  if (fds[2].revents != 0) acceptDirect();
  return Clock::now() < m_end;
}

void Program::acceptDirect() {
  auto peer = m_direct->accept();
  if (!peer || !hasPlaceFor(peer->host)) return;
  EndpointSettings settings;
  settings.session = m_options.endpoint.session;
  settings.helloTimeout = m_options.endpoint.helloTimeout;
  settings.idleTimeout = m_options.idleTimeout;
  const std::string name = base::text("service {}", ++m_directCount);
  base::logInfo("{}: connected", name);
  auto transport = std::make_unique<SocketTransport>(std::move(*peer), name);
  m_connections.push_back(std::make_unique<Connection>(std::move(transport), settings, m_gallery));
}

bool Program::hasPlaceFor(const std::string& host) const {
  const auto same = [&host](const auto& connection) { return connection->peerHost() == host; };
  if (std::ranges::count_if(m_connections, same) < kMaxConnectionsPerHost) return true;
  base::logWarning("{}: refused a peer, as {} connections come from {} already", m_direct->name(),
                   kMaxConnectionsPerHost, host.empty() ? "this machine" : host);
  return false;
}

void Program::update() {
  const auto now = Clock::now();
  for (const auto& connection : m_connections) connection->update(now);
  std::erase_if(m_connections, [](const auto& connection) { return connection->over(); });
  m_gallery.update();
  if (m_hub->needsStatus()) m_hub->setStatus(statusJson());
  if (now - m_fileWritten >= kFileInterval) {
    m_fileWritten = now;
    writeStatusFile();
  }
}

// When to look again though nothing has happened.
Clock::time_point Program::due() const {
  Clock::time_point due = m_end;
  for (const auto& connection : m_connections) due = std::min(due, connection->due());
  if (m_direct) due = std::min(due, m_direct->resumes());
  if (m_gallery.finishing()) due = std::min(due, Clock::now() + kFinishingInterval);
  if (!m_options.statusFile.empty()) due = std::min(due, m_fileWritten + kFileInterval);
  return due;
}

void Program::writeStatusFile() {
  if (m_options.statusFile.empty()) return;
  const std::string content = statusJson() + '\n';
  if (base::replaceFile(m_options.statusFile, base::bytesOf(content))) return;
  if (std::exchange(m_loggedFileError, true)) return;
  base::logError("cannot write the status file {}: {}; continuing without it", m_options.statusFile,
                 base::systemError());
}

Status Program::status() const {
  Status status;
  status.protocol = m_options.endpoint.protocol;
  status.seconds = std::chrono::duration<double>(Clock::now() - m_begin).count();
  status.direct = directAddress();
  status.viewPort = viewPort();
  status.cameras = m_gallery.removed();
  for (const auto& connection : m_connections) {
    status.connections.push_back(connection->status());
    connection->appendStatus(status.cameras);
  }
  return status;
}

}  // namespace lumsar::agent
