// The command "sharetcp" and the connections to the VM that it makes.
#include <algorithm>
#include <utility>

#include "base/log.h"
#include "base/system/spare_resources.h"
#include "base/text/format.h"
#include "json/json.h"
#include "session/client_session.h"

namespace lumsar::service {
namespace {

std::optional<VmAddress> addressOf(const ClientSession::TcpTarget& target) {
  return parseVmAddress(target.ip, target.port);
}

}  // namespace

std::string ClientSession::transportName(const Wait& wait) {
  if (wait.transport) return wait.transport->name();
  const auto vm = wait.target ? addressOf(*wait.target) : std::nullopt;
  return vm ? vm->text() : "host";
}

ClientSession::TcpTarget ClientSession::tcpTarget(const QJsonObject& command) {
  return {json::textOrNumber(command.value("deviceId")),
          json::textOrNumber(command.value("remoteIp")),
          json::textOrNumber(command.value("remotePort"))};
}

// A "sharetcp" comes twice: to connect, and a moment later to share. By then the connection may be
// up, or the share waits for it.
void ClientSession::connectVm(const TcpTarget& target) {
  m_failedTarget.reset();
  const bool accepted = mayShare(target.camera) && isValid(target) &&
                        (presentCamera(target.camera) == nullptr || tcpTransport(target));
  if (!accepted) m_failedTarget = target;
}

// Connecting failed and that was reported: sharing is not refused again.
bool ClientSession::hasFailed(const TcpTarget& target) {
  return std::exchange(m_failedTarget, std::nullopt) == target;
}

// What a name resolves to is seen by the connection.
bool ClientSession::isValid(const TcpTarget& target) {
  const auto vm = addressOf(target);
  if (vm && (!vm->ip || m_context.direct.allow(*vm->ip))) return true;
  std::string why = base::text(
      "'{}' port '{}' is not a valid address of a VM; remoteIp must be an IP address or a "
      "name and remotePort a number from 1 to 65535",
      target.ip, target.port);
  if (vm && DirectNetworks().allow(*vm->ip)) {
    why = base::text("the camera service connects to other networks only (--direct-to)");
  }
  report(commandRefused(why, target.camera));
  return false;
}

// Whether one more connection to a VM may be made now; if not, that is reported.
bool ClientSession::mayConnect(const TcpTarget& target) {
  std::string why;
  if (m_tcpTransports.size() >= kMaxConnections) {
    why = base::text("at most {} direct connections are possible", kMaxConnections);
  } else if (!m_connects.allow()) {
    why = base::text("at most {} direct connections in {} s are possible; share it again later",
                     kMaxConnects, kConnectsTime.count());
  } else if (!base::hasSpareDescriptors(kSpareDescriptors)) {
    why = base::tooManyOpenFiles();
  }
  if (!why.empty()) report(commandRefused(why, target.camera));
  return why.empty();
}

// The connection to the VM that the command names, made if need be; null when it names none.
std::shared_ptr<TcpTransport> ClientSession::tcpTransport(const TcpTarget& target) {
  if (!isValid(target)) return nullptr;
  const VmAddress vm = *addressOf(target);
  const std::string address = vm.text();
  if (const auto known = m_tcpTransports.find(address); known != m_tcpTransports.end()) {
    return known->second;
  }
  if (!mayConnect(target)) return nullptr;
  TcpTransport::Handlers handlers{
      [this, address] { onTcpReady(address); },
      [this, address](base::Bytes record) {
        const auto found = m_tcpTransports.find(address);
        if (found != m_tcpTransports.end()) onVmData(found->second.get(), record);
      },
      [this, address, target](const std::string& why) { onTcpEnd(address, target, why); }};
  auto transport = std::make_shared<TcpTransport>(m_context.io, vm, m_context.direct,
                                                  m_context.accessLine, std::move(handlers));
  m_tcpTransports[address] = transport;
  base::logInfo("{}: connecting to {}", vmText(), address);
  transport->start();
  return transport;
}

void ClientSession::onTcpReady(const std::string& address) {
  for (const auto& [id, share] : m_shares) {
    if (share->transport()->name() == address) share->announce();
  }
}

void ClientSession::onTcpEnd(const std::string& address, const TcpTarget& target,
                             const std::string& why) {
  const auto ended = m_tcpTransports.extract(address);  // lives until it has reported its end
  std::erase_if(m_waiting, [&](const auto& entry) {
    return entry.second.transport && entry.second.transport->name() == address;
  });
  const std::string reason =
      base::text("the connection to {} by {} ended: {}", vmText(), address, why);
  std::vector<const Camera*> cameras;
  for (const auto& [id, share] : m_shares) {
    if (share->transport()->name() == address) cameras.push_back(&share->camera());
  }
  for (const Camera* camera : cameras) {
    dropShare(camera->info.id, "no longer shared");
    report(cameraFailed(*camera, reason + "; share it again"));
  }
  if (!cameras.empty()) return;
  report(connectionFailed(target.camera, reason));
  m_failedTarget = target;
}

void ClientSession::dropIdleTcpTransports() {
  std::erase_if(m_tcpTransports, [this](const auto& entry) {
    const auto uses = [&](const auto& item) { return item.second->transport() == entry.second; };
    const auto waits = [&](const auto& item) { return item.second.transport == entry.second; };
    if (std::ranges::any_of(m_shares, uses) || std::ranges::any_of(m_waiting, waits)) return false;
    entry.second->close();
    return true;
  });
}

}  // namespace lumsar::service
