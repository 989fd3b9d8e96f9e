// Service: see service.h. Runs on the thread that calls run().
#include "app/service.h"

#include <asio/post.hpp>
#include <csignal>
#include <cstring>

#include "app/log.h"
#include "app/status_client.h"
#include "lumsar/ipc_transport.h"
#include "session/json.h"
#include "sources/synthetic.h"

namespace lumsar::service {
namespace {

constexpr const char* kSubstitute = "Lumsar test camera";

}  // namespace

Service::Service(asio::io_context& io, const Options& options, ipc::Listener listener)
    : m_io(io),
      m_signals(io, SIGINT, SIGTERM, SIGHUP),
      m_access(options.access),
      m_mayOfferSubstitute(options.synthetic.empty() && options.files.empty() &&
                           options.folders.empty()),
      m_streams(io, m_cameraThreads,
                [this](const Camera& camera, const std::string& why) { onTrouble(camera, why); }),
      m_server(io, std::move(listener), *this),
      m_context{io, m_server, m_catalogue, m_streams, m_access},
      m_files(io, m_virtual,
              [this](const std::string& id, const std::string& why) { onUnreadable(id, why); }),
      m_devices(io, {[this](CameraInfo info) { onPlugged(std::move(info)); },
                     [this](const std::string& id) { onUnplugged(id); }}) {
  for (const VirtualCamera& camera : options.synthetic) m_virtual.plug(camera);
  for (const std::string& path : options.files) m_files.add(path);
  const auto add = [this](const std::string& path) { m_files.add(path); };
  const auto remove = [this](const std::string& path) { m_files.remove(path); };
  for (const std::string& folder : options.folders) {
    m_folders.push_back(
        std::make_unique<FolderWatch>(io, folder, FolderWatch::Events{add, remove}));
  }
}

Service::~Service() {
  m_hosts.clear();
  // The cameras are off before the service has ended.
  m_cameraThreads.join();
}

void Service::run() {
  m_signals.async_wait([this](asio::error_code error, int signal) {
    if (error) return;
    logInfo("stopping (SIG", sigabbrev_np(signal), ")");
    m_io.stop();
  });
  m_devices.start();
  asio::post(m_io, [this] { offerSubstitute(); });
  logInfo("listening at ", m_server.path());
  m_io.run();
}

void Service::onClient(ipc::ClientId client, const std::string& name) {
  if (name == kStatusClient) return;  // it is no host
  logInfo("client ", client, " '", name, "' connected");
  m_hosts[client] = std::make_unique<Host>(m_context, client, name);
}

void Service::onMessage(ipc::ClientId client, std::span<unsigned char> message) {
  const RedirMsgHeader header = readHeader(message.data());
  const auto answer = [&](const QJsonObject& report) {
    m_server.reply(client, header, ipc::Message(header.type, compactJson(report)));
  };
  if (header.type == IPC_MSG_STATUS) {
    return answer(statusReport(m_context, m_hosts, std::chrono::steady_clock::now() - m_begin));
  }
  const auto host = m_hosts.find(client);
  if (host == m_hosts.end()) return;
  if (header.type == IPC_MSG_CAMERA_LIST) {
    return answer(cameraList(*host->second, m_context, m_hosts, m_files.unreadable()));
  }
  host->second->onMessage(message);
}

void Service::onClientGone(ipc::ClientId client, const std::string& why) {
  const auto host = m_hosts.extract(client);
  if (host) logInfo("client ", client, " '", host.mapped()->name(), "' is gone: ", why);
}

void Service::onWarning(const std::string& text) {
  logWarning(text);
}

void Service::onPlugged(CameraInfo info) {
  const Camera* camera = m_catalogue.plug(std::move(info));
  if (camera == nullptr) return;
  logInfo("camera ", camera->number, " '", camera->info.id, "' (", camera->info.name,
          ") is there, ", camera->info.formats.size(), " format(s)");
  for (const auto& [id, host] : m_hosts) host->onPlugged(*camera);
  offerSubstitute();
}

void Service::onUnplugged(const std::string& id) {
  const Camera* camera = m_catalogue.unplug(id);
  if (camera == nullptr) return;
  logInfo("camera ", camera->number, " '", id, "' is unplugged");
  for (const auto& [client, host] : m_hosts) host->onUnplugged(*camera);
  offerSubstitute();
}

void Service::onTrouble(const Camera& camera, const std::string& why) {
  for (const auto& [id, host] : m_hosts) host->onTrouble(camera, why);
}

void Service::onUnreadable(const std::string& id, const std::string& why) {
  const DeviceChange change = fileRefused(id, why);
  logWarning("'", id, "' is left out: ", change.reason);
  for (const auto& [client, host] : m_hosts) host->tell(change);
}

// Where there is no camera at all, a synthetic one is offered, until there is one.
void Service::offerSubstitute() {
  if (!m_mayOfferSubstitute) return;
  const VirtualCamera substitute = syntheticCamera(kSubstitute);
  const auto isReal = [&](const Camera* camera) {
    return camera->present && camera->info.id != substitute.id;
  };
  const Camera* known = m_catalogue.find(substitute.id);
  const bool offered = known != nullptr && known->present;
  const bool needed = std::ranges::none_of(m_catalogue.all(), isReal);
  if (needed && !offered) m_virtual.plug(substitute);
  if (!needed && offered) m_virtual.unplug(substitute.id);
}

}  // namespace lumsar::service
