// Commands that lumsar-cameras gives on a host's behalf. The host remembers what is to be shared
// again after a loss, so it is told of each that was carried out, and finds it in its list until it
// gives a command of its own: an RDP host is told of nothing.
#include <optional>

#include "json/json.h"
#include "session/client_session.h"

namespace lumsar::service {
namespace {

std::optional<IpcMsgType> typeOf(const std::string& command) {
  if (command == "share") return IPC_MSG_SHARE;
  if (command == "unshare") return IPC_MSG_UNSHARE;
  if (command == "unshareall") return IPC_MSG_UNSHARE_ALL;
  return std::nullopt;
}

}  // namespace

DeviceChange ClientSession::control(const QJsonObject& command) {
  const auto type = typeOf(json::textAt(command, "command"));
  if (!type) return commandRefused("the command is not share, unshare or unshareall");
  DeviceChange refusal;
  m_verdict = &refusal;
  carryOut(*type, command);
  m_verdict = nullptr;
  if (*refusal.change != '\0') return refusal;
  const std::string reference =
      *type == IPC_MSG_UNSHARE_ALL ? "" : json::textOrNumber(command.value("deviceId"));
  const Camera* camera = m_context.catalogue.find(reference);
  const std::string& id = camera == nullptr ? reference : camera->info.id;
  if (*type == IPC_MSG_UNSHARE_ALL) m_controls.clear();
  m_controls[id] = *type == IPC_MSG_SHARE;
  const DeviceChange change = shareControlled(*type == IPC_MSG_SHARE, id, camera);
  tell(change);
  return m_waiting.contains(id) ? cameraAwaited(id, camera) : change;
}

void ClientSession::forgetControls(std::uint32_t type, const QJsonObject& command) {
  if (type == IPC_MSG_UNSHARE_ALL || type == IPC_MSG_REDIRECT_ALL) return m_controls.clear();
  const std::string reference = json::textOrNumber(command.value("deviceId"));
  const Camera* camera = m_context.catalogue.find(reference);
  m_controls.erase(camera == nullptr ? reference : camera->info.id);
}

}  // namespace lumsar::service
