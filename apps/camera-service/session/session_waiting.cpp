// Shares of cameras that are not there: unplugged, or not found yet. A host shares its cameras
// again as soon as a service that was started again answers, and that may be before the service has
// found them.
#include <algorithm>
#include <utility>

#include "base/log.h"
#include "session/client_session.h"

namespace lumsar::service {
namespace {

constexpr std::size_t kMaxWaiting = 64;
constexpr std::size_t kLongestReference = 4096;  // a file's id may hold its whole path

}  // namespace

// By its id or its name. A number means something only while the list shows it, and a name that
// several cameras have will not become clearer.
bool ClientSession::mayComeLater(const std::string& reference) const {
  const bool isNumber = reference.find_first_not_of("0123456789") == std::string::npos;
  const auto hasName = [&](const Camera* camera) { return camera->info.name == reference; };
  return !isNumber && reference.size() <= kLongestReference &&
         std::ranges::none_of(m_context.catalogue.all(), hasName);
}

void ClientSession::wait(const std::string& reference, const std::optional<TcpTarget>& target) {
  const Camera* known = m_context.catalogue.find(reference);
  const std::string& id = known == nullptr ? reference : known->info.id;
  if (target && !isValid(*target)) return;
  if (!m_waiting.contains(id) && m_waiting.size() >= kMaxWaiting) {
    return report(commandRefused("too many shares wait already for their cameras", reference));
  }
  m_exceptFromAll.erase(id);
  forgetRefusals(id);
  m_waiting[id] = {nullptr, target};
  dropIdleTcpTransports();
  const DeviceChange change = cameraAwaited(id, known);
  base::logInfo("{}: the share of '{}' waits: {}", vmText(), id, change.reason);
  tell(change);
}

// Whatever has waited for this camera, by its id or by its name.
std::optional<ClientSession::Wait> ClientSession::takeWait(const Camera& camera) {
  std::optional<Wait> taken;
  std::erase_if(m_waiting, [&](auto& entry) {
    if (m_context.catalogue.find(entry.first) != &camera) return false;
    taken = std::move(entry.second);
    return true;
  });
  return taken;
}

ClientSession::TransportPtr ClientSession::transportOf(const Wait& wait) {
  if (wait.transport) return wait.transport;
  return wait.target ? tcpTransport(*wait.target) : m_hostTransport;
}

bool ClientSession::isExceptedFromAll(const Camera& camera) const {
  return m_exceptFromAll.contains(camera.info.id) || m_exceptFromAll.contains(camera.info.name);
}

// False when the camera is not known and cannot be remembered.
bool ClientSession::exceptFromAll(const std::string& reference) {
  if (m_context.catalogue.find(reference) == nullptr) {
    if (!mayComeLater(reference) || m_exceptFromAll.size() >= kMaxWaiting) return false;
  }
  m_exceptFromAll.insert(reference);
  return true;
}

}  // namespace lumsar::service
