// Host: the command "sharetcp" and the direct connections to the VM that it makes. Runs on the
// io_context's thread.
#include <algorithm>
#include <charconv>
#include <utility>

#include "app/log.h"
#include "session/client_session.h"
#include "session/json.h"

namespace lumsar::service {
namespace {

// What both halves of a "sharetcp" have in common.
QJsonObject target(const QJsonObject& command) {
  QJsonObject result;
  for (const char* key : {"deviceId", "remoteIp", "remotePort"}) result[key] = command.value(key);
  return result;
}

}  // namespace

// First half of "sharetcp"; the share itself follows a moment later. By then the connection may be
// up, or the share waits for it.
void Host::connectVm(const QJsonObject& command) {
  m_refusedConnect = {};
  if (wantedCamera(command) == nullptr || !tcpLink(command)) m_refusedConnect = target(command);
}

// Whether the first half of this command has failed, which was told then. True once.
bool Host::failedToConnect(const QJsonObject& command) {
  return !m_refusedConnect.isEmpty() &&
         std::exchange(m_refusedConnect, QJsonObject()) == target(command);
}

// The link to the VM that the command names, connecting if need be; null when it names none.
std::shared_ptr<TcpLink> Host::tcpLink(const QJsonObject& command) {
  const std::string ip = textOrNumber(command.value("remoteIp"));
  const std::string port = textOrNumber(command.value("remotePort"));
  const std::string reference = textOrNumber(command.value("deviceId"));
  asio::error_code error;
  const auto address = asio::ip::make_address(ip, error);
  std::uint16_t number = 0;
  const auto parsed = std::from_chars(port.data(), port.data() + port.size(), number);
  if (error || parsed.ec != std::errc{} || parsed.ptr != port.data() + port.size() || number == 0) {
    refuse({"refused",
            reference,
            nullptr,
            {},
            joined("'", ip, "' port '", port, "' is no address of a VM; remoteIp must be an IP ",
                   "address and remotePort a number from 1 to 65535")});
    return nullptr;
  }
  const asio::ip::tcp::endpoint endpoint(address, number);
  const std::string key = addressText(endpoint);
  std::shared_ptr<TcpLink>& link = m_tcpLinks[key];
  if (link) return link;
  link = std::make_shared<TcpLink>(
      m_context.io, endpoint,
      TcpLink::Handlers{
          [this, key] { onTcpReady(key); },
          [this, key](std::span<const unsigned char> record) {
            const auto found = m_tcpLinks.find(key);
            if (found != m_tcpLinks.end()) onVmData(found->second.get(), record);
          },
          [this, key, command](const std::string& why) { onTcpEnd(key, command, why); }});
  logInfo(vmText(), ": connecting to ", key);
  std::shared_ptr<TcpLink> started = link;
  started->start();
  return started;
}

void Host::onTcpReady(const std::string& address) {
  for (const auto& [id, share] : m_shares) {
    if (share->link()->name() == address) share->announce();
  }
}

void Host::onTcpEnd(const std::string& address, const QJsonObject& command,
                    const std::string& why) {
  const auto link = m_tcpLinks.extract(address);
  const std::string reason = "the connection to " + vmText() + " by " + address + " ended: " + why;
  std::vector<const Camera*> cameras;
  for (const auto& [id, share] : m_shares) {
    if (share->link()->name() == address) cameras.push_back(&share->camera());
  }
  std::erase_if(m_waiting, [&](const auto& entry) { return entry.second->name() == address; });
  if (cameras.empty()) {
    refuse({"failed", textOrNumber(command.value("deviceId")), nullptr, {}, reason});
    m_refusedConnect = target(command);
  }
  for (const Camera* camera : cameras) {
    dropShare(camera->info.id, "no longer shared");
    refuse(deviceChange("failed", *camera, reason + "; share it again"));
  }
}

void Host::dropIdleTcpLinks() {
  std::erase_if(m_tcpLinks, [this](const auto& entry) {
    const auto uses = [&](const auto& item) { return item.second->link() == entry.second; };
    const auto waits = [&](const auto& item) { return item.second == entry.second; };
    if (std::ranges::any_of(m_shares, uses) || std::ranges::any_of(m_waiting, waits)) return false;
    entry.second->close();
    return true;
  });
}

}  // namespace lumsar::service
