// Host: the commands share, unshare, unshare all and share all. Runs on the io_context's thread.
#include "app/log.h"
#include "session/client_session.h"
#include "session/json.h"

namespace lumsar::service {

void Host::onCommand(std::uint32_t type, std::span<const unsigned char> payload) {
  JsonReading command;
  if (!payload.empty() || type != IPC_MSG_UNSHARE_ALL) command = readJsonObject(asText(payload));
  if (!command.error.empty()) {
    return refuse({"refused", {}, nullptr, {}, "the command " + command.error});
  }
  rename(command.object.value("vmId").toString().toStdString());
  switch (type) {
    case IPC_MSG_SHARE:
      return share(command.object);
    case IPC_MSG_CONNECT_VM:
      return connectVm(command.object);
    case IPC_MSG_UNSHARE:
      return unshare(command.object);
    case IPC_MSG_UNSHARE_ALL:
      return unshareAll("no longer shared");
    case IPC_MSG_REDIRECT_ALL:
      return shareAll(command.object);
    default:
      refuse({"refused",
              {},
              nullptr,
              {},
              joined("message type ", type, " is not known to this camera service")});
  }
}

// The camera that a command names, if it may be shared; else the refusal has been told.
const Camera* Host::wantedCamera(const QJsonObject& command) {
  const char* change = "refused";
  const std::string reference = textOrNumber(command.value("deviceId"));
  const Camera* camera = m_context.catalogue.find(reference);
  if (reference.empty()) {
    refuse({change, {}, nullptr, {}, "the command has no deviceId; take one from the camera list"});
    return nullptr;
  }
  const std::string denied = camera == nullptr ? "" : refusal(camera->info);
  if (camera == nullptr) {
    refuse(
        {change, reference, nullptr, {}, "there is no such camera; the camera list shows the ids"});
  } else if (!denied.empty()) {
    refuse(deviceChange(change, *camera, denied));
  } else if (!camera->present) {
    refuse(deviceChange(change, *camera, "it is unplugged; plug it in and share it again"));
  } else {
    return camera;
  }
  return nullptr;
}

void Host::share(const QJsonObject& command) {
  const bool overTcp = command.value("command").toString() == QLatin1String("sharetcp");
  if (overTcp && failedToConnect(command)) return;
  const Camera* camera = wantedCamera(command);
  if (camera == nullptr) return;
  const LinkPtr link = overTcp ? tcpLink(command) : m_hostLink;
  if (!link) return;
  shareCamera(*camera, link);
}

void Host::shareCamera(const Camera& camera, const LinkPtr& link) {
  const std::string& id = camera.info.id;
  m_waiting.erase(id);
  m_notOfAll.erase(id);
  std::erase_if(m_refusals, [&](const DeviceChange& old) { return old.camera == id; });
  const Share* present = shareOf(id);
  if (present != nullptr && present->link() != link) dropShare(id, "shared another way");
  std::unique_ptr<Share>& share = m_shares[id];
  if (!share) {
    const PolicyRule& rule = m_policy.ruleFor(camera.info);
    share = std::make_unique<Share>(m_context.streams.of(camera), link, rule);
  }
  // A VM takes a camera that is announced again for a new one and lets go of the one in use.
  if (share->started()) return logInfo("camera '", id, "' is in use by ", vmText(), " already");
  logInfo("camera '", id, "' is shared with ", vmText(), " through ", link->name());
  share->announce();
}

void Host::shareAll(const QJsonObject& command) {
  logInfo("all cameras for ", vmText(), ", session ", command.value("sessionId").toInt(-1));
  m_shareAll = true;
  m_notOfAll.clear();
  for (const Camera* camera : m_context.catalogue.all()) {
    if (!camera->present) continue;
    const std::string denied = refusal(camera->info);
    if (!denied.empty()) {
      logInfo("camera '", camera->info.id, "' is left out: ", denied);
      continue;
    }
    shareCamera(*camera, m_hostLink);
  }
}

void Host::unshare(const QJsonObject& command) {
  const std::string reference = textOrNumber(command.value("deviceId"));
  const Camera* camera = m_context.catalogue.find(reference);
  const std::string id = camera == nullptr ? reference : camera->info.id;
  const bool waited = m_waiting.erase(id) > 0;
  if (shareOf(id) == nullptr && !waited) {
    return refuse({"refused", reference, camera, {}, "it is not shared, so it cannot be unshared"});
  }
  if (m_shareAll) m_notOfAll.insert(id);
  dropShare(id, "no longer shared");
  dropIdleTcpLinks();
}

void Host::unshareAll(const std::string& why) {
  m_shareAll = false;
  m_notOfAll.clear();
  m_waiting.clear();
  while (!m_shares.empty()) dropShare(m_shares.begin()->first, why);
  dropIdleTcpLinks();
}

void Host::dropShare(const std::string& cameraId, const std::string& why) {
  const auto share = m_shares.extract(cameraId);
  if (!share) return;
  share.mapped()->withdraw(why);
  logInfo("camera '", share.key(), "' is ", why, " with ", vmText());
}

}  // namespace lumsar::service
