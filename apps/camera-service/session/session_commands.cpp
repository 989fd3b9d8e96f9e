// The commands share, unshare, unshare all and share all.
#include "base/log.h"
#include "base/text/format.h"
#include "json/json.h"
#include "session/client_session.h"

namespace lumsar::service {

void ClientSession::onCommand(std::uint32_t type, base::Bytes payload) {
  json::Reading command;
  const bool needsDocument = type != IPC_MSG_UNSHARE_ALL;
  if (needsDocument || !payload.empty()) command = json::readObject(base::textOf(payload));
  if (!command.error.empty()) return report(commandRefused("the command " + command.error));
  if (!setVmId(json::textAt(command.object, "vmId"))) return;
  forgetControls(type, command.object);
  carryOut(type, command.object);
}

void ClientSession::carryOut(std::uint32_t type, const QJsonObject& command) {
  switch (type) {
    case IPC_MSG_SHARE:
      return share(command);
    case IPC_MSG_CONNECT_VM:
      return connectVm(tcpTarget(command));
    case IPC_MSG_UNSHARE:
      return unshare(json::textOrNumber(command.value("deviceId")));
    case IPC_MSG_UNSHARE_ALL:
      return unshareAll();
    case IPC_MSG_REDIRECT_ALL:
      return shareAll(command.value("sessionId").toInt(-1));
    default:
      report(
          commandRefused(base::text("message type {} is not known to this camera service", type)));
  }
}

// Whether a command may share the camera that it names, now or once it is there; if not, that is
// reported.
bool ClientSession::mayShare(const std::string& reference) {
  const auto refuse = [this](const DeviceChange& change) {
    report(change);
    return false;
  };
  if (reference.empty()) {
    return refuse(commandRefused("the command lacks a deviceId; take one from the camera list"));
  }
  const Camera* camera = m_context.catalogue.find(reference);
  if (camera == nullptr) {
    return mayComeLater(reference) ||
           refuse(
               commandRefused("there is no such camera; the camera list shows the ids", reference));
  }
  const std::string denied = refusal(camera->info);
  return denied.empty() || refuse(cameraRefused(*camera, denied));
}

const Camera* ClientSession::presentCamera(const std::string& reference) const {
  const Camera* camera = m_context.catalogue.find(reference);
  return camera != nullptr && camera->present ? camera : nullptr;
}

void ClientSession::share(const QJsonObject& command) {
  const bool overTcp = json::textAt(command, "command") == "sharetcp";
  const TcpTarget target = tcpTarget(command);
  if (overTcp && hasFailed(target)) return;
  if (!mayShare(target.camera)) return;
  const Camera* camera = presentCamera(target.camera);
  if (camera == nullptr) {
    return wait(target.camera, overTcp ? std::optional(target) : std::nullopt);
  }
  const TransportPtr transport = overTcp ? tcpTransport(target) : m_hostTransport;
  if (transport) shareCamera(*camera, transport);
}

void ClientSession::shareCamera(const Camera& camera, const TransportPtr& transport) {
  const std::string& id = camera.info.id;
  takeWait(camera);
  m_exceptFromAll.erase(id);
  m_exceptFromAll.erase(camera.info.name);
  forgetRefusals(id);
  const Share* present = shareOf(id);
  if (present != nullptr && present->transport() != transport) {
    dropShare(id, "shared over another transport");
  }
  std::unique_ptr<Share>& share = m_shares[id];
  if (!share) {
    const PolicyRule& rule = m_policy.ruleFor(camera.info);
    share = std::make_unique<Share>(m_context.streams.of(camera), transport, rule);
  }
  // A VM would take a camera that is announced again for a new one and drop the one in use.
  if (share->started()) {
    return base::logInfo("camera '{}' is already in use by {}", id, vmText());
  }
  base::logInfo("camera '{}' is shared with {} through {}", id, vmText(), transport->name());
  share->announce();
}

void ClientSession::shareAll(int session) {
  base::logInfo("sharing all cameras with {}, session {}", vmText(), session);
  m_shareAll = true;
  m_exceptFromAll.clear();
  for (const Camera* camera : m_context.catalogue.all()) {
    if (!camera->present) continue;
    const std::string denied = refusal(camera->info);
    if (denied.empty()) {
      shareCamera(*camera, m_hostTransport);
    } else {
      base::logInfo("camera '{}' is left out: {}", camera->info.id, denied);
    }
  }
}

void ClientSession::unshare(const std::string& reference) {
  const Camera* camera = m_context.catalogue.find(reference);
  const std::string id = camera == nullptr ? reference : camera->info.id;
  const bool waited = m_waiting.erase(id) > 0;
  const bool absent = camera == nullptr || !camera->present;
  const bool excepted = m_shareAll && absent && exceptFromAll(id);
  if (shareOf(id) == nullptr && !waited && !excepted) {
    return report(commandRefused("it is not shared, so it cannot be unshared", reference, camera));
  }
  if (m_shareAll) m_exceptFromAll.insert(id);
  forgetRefusals(id);
  dropShare(id, "no longer shared");
  dropIdleTcpTransports();
}

void ClientSession::unshareAll() {
  m_shareAll = false;
  m_exceptFromAll.clear();
  m_waiting.clear();
  while (!m_shares.empty()) dropShare(m_shares.begin()->first, "no longer shared");
  dropIdleTcpTransports();
}

void ClientSession::dropShare(const std::string& cameraId, const std::string& why) {
  const auto share = m_shares.extract(cameraId);
  if (!share) return;
  share.mapped()->remove(why);
  base::logInfo("camera '{}' is {} with {}", share.key(), why, vmText());
}

}  // namespace lumsar::service
