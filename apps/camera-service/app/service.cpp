#include "app/service.h"

#include <asio/post.hpp>
#include <csignal>
#include <cstring>

#include "app/service_call.h"
#include "base/log.h"
#include "json/json.h"
#include "lumsar/ipc_transport.h"
#include "protocol/access_token.h"
#include "sources/synthetic.h"

namespace lumsar::service {
namespace {

constexpr const char* kFallbackCamera = "Lumsar test camera";

}  // namespace

Service::Service(asio::io_context& io, const Options& options, base::SocketListener listener)
    : m_io(io),
      m_signals(io, SIGINT, SIGTERM, SIGHUP),
      m_access(options.access),
      m_accessLine(protocol::readAccessLine(options.tokenFile)),
      m_direct(options.direct),
      m_mayOfferFallback(options.synthetic.empty() && options.files.empty() &&
                         options.directories.empty()),
      m_streams(
          io, m_cameraThreads,
          [this](const Camera& camera, const std::string& why) { onCameraFailed(camera, why); }),
      m_server(io, std::move(listener), *this, {.spareDescriptors = kSpareDescriptors}),
      m_context{io, m_server, m_catalogue, m_streams, m_access, m_accessLine, m_direct},
      m_files(io, m_virtual,
              [this](const std::string& id, const std::string& why) { onUnreadable(id, why); }),
      m_devices(io, {[this](CameraInfo info) { onPlugged(std::move(info)); },
                     [this](const std::string& id) { onUnplugged(id); }}) {
  for (const VirtualCamera& camera : options.synthetic) m_virtual.plug(camera);
  for (const std::string& path : options.files) m_files.add(path);
  const auto add = [this](const std::string& path) { m_files.add(path); };
  const auto remove = [this](const std::string& path) { m_files.remove(path); };
  for (const std::string& directory : options.directories) {
    m_directories.push_back(
        std::make_unique<DirectoryWatch>(io, directory, DirectoryWatch::Events{add, remove}));
  }
}

Service::~Service() {
  m_sessions.clear();
  // The cameras are off before the service has ended.
  m_cameraThreads.join();
}

void Service::run() {
  m_signals.async_wait([this](asio::error_code error, int signal) {
    if (error) return;
    base::logInfo("stopping (SIG{})", sigabbrev_np(signal));
    m_io.stop();
  });
  m_devices.start();
  asio::post(m_io, [this] {
    offerFallback();
    nameUnmatchedRules();
  });
  base::logInfo("listening at {}", m_server.path());
  m_io.run();
}

void Service::onClient(ipc::ClientId client, const std::string& name) {
  if (name == kToolClient) return;  // not a host
  base::logInfo("client {} '{}' connected", client, name);
  m_sessions[client] = std::make_unique<ClientSession>(m_context, client, name);
}

void Service::onMessage(ipc::ClientId client, std::span<unsigned char> message) {
  const RedirMsgHeader header = readHeader(message.data());
  const auto answer = [&](const QJsonObject& report) {
    m_server.reply(client, header, {header.type, {base::bytesOf(json::compact(report))}});
  };
  if (header.type == IPC_MSG_STATUS) {
    return answer(statusReport(m_context, m_sessions, std::chrono::steady_clock::now() - m_begin));
  }
  if (header.type == IPC_MSG_CONTROL) {
    return answer(control(base::textOf(message.subspan(kHeaderSize))));
  }
  const auto session = m_sessions.find(client);
  if (session == m_sessions.end()) return;
  if (header.type == IPC_MSG_CAMERA_LIST) {
    return answer(cameraList(*session->second, m_context, m_sessions, m_files.unreadable()));
  }
  session->second->onMessage(message);
}

QJsonObject Service::control(std::string_view text) {
  if (text.size() > kLongestCommand) return toJson(commandRefused("the command is too long"));
  const json::Reading command = json::readObject(text);
  if (!command.error.empty()) return toJson(commandRefused("the command " + command.error));
  const auto host = static_cast<ipc::ClientId>(command.object.value("client").toInt(-1));
  const auto session = m_sessions.find(host);
  if (session == m_sessions.end()) return toJson(commandRefused("this host is not connected"));
  DeviceChange change = session->second->control(command.object);
  change.vmId = session->second->vmId();
  return toJson(change);
}

void Service::onClientGone(ipc::ClientId client, const std::string& why) {
  const auto session = m_sessions.extract(client);
  if (session) {
    base::logInfo("client {} '{}' disconnected: {}", client, session.mapped()->name(), why);
  }
}

void Service::onWarning(const std::string& text) {
  base::logWarning("{}", text);
}

void Service::onPlugged(CameraInfo info) {
  const Camera* camera = m_catalogue.plug(std::move(info));
  if (camera == nullptr) return;
  base::logInfo("camera {} '{}' ({}) is plugged in, {} format(s)", camera->number, camera->info.id,
                camera->info.name, camera->info.formats.size());
  for (const auto& [id, session] : m_sessions) session->onPlugged(*camera);
  offerFallback();
}

void Service::onUnplugged(const std::string& id) {
  const Camera* camera = m_catalogue.unplug(id);
  if (camera == nullptr) return;
  base::logInfo("camera {} '{}' is unplugged", camera->number, id);
  for (const auto& [client, session] : m_sessions) session->onUnplugged(*camera);
  offerFallback();
}

void Service::onCameraFailed(const Camera& camera, const std::string& why) {
  for (const auto& [id, session] : m_sessions) session->onCameraFailed(camera, why);
}

void Service::onUnreadable(const std::string& id, const std::string& why) {
  const DeviceChange change = fileRefused(id, why);
  base::logWarning("'{}' is left out: {}", id, change.reason);
  for (const auto& [client, session] : m_sessions) session->tell(change);
}

// A mistyped rule would protect nothing, unnoticed.
void Service::nameUnmatchedRules() {
  std::vector<CameraInfo> cameras;
  for (const Camera* camera : m_catalogue.all()) {
    if (camera->present) cameras.push_back(camera->info);
  }
  for (const std::string& rule : m_access.unmatched(cameras)) {
    base::logInfo("{}: matches no camera yet", rule);
  }
}

// While there is no camera at all, a synthetic one is offered.
void Service::offerFallback() {
  if (!m_mayOfferFallback) return;
  const VirtualCamera fallback = syntheticCamera(kFallbackCamera);
  const auto isReal = [&](const Camera* camera) {
    return camera->present && camera->info.id != fallback.id;
  };
  const Camera* known = m_catalogue.find(fallback.id);
  const bool offered = known != nullptr && known->present;
  const bool needed = std::ranges::none_of(m_catalogue.all(), isReal);
  if (needed && !offered) m_virtual.plug(fallback);
  if (!needed && offered) m_virtual.unplug(fallback.id);
}

}  // namespace lumsar::service
