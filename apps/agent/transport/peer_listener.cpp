#include "transport/peer_listener.h"

#include <unistd.h>

#include <utility>

#include "base/log.h"
#include "base/net/peer.h"

namespace lumsar::agent {
namespace {

bool isLocal(const base::Address& address) {
  return address.isUnix() || address.host.starts_with("127.") || address.host == "localhost" ||
         address.host == "::1";
}

std::string userText(const std::optional<uid_t>& user) {
  return user ? base::text("belongs to user {}", *user)
              : "belongs to a user that cannot be found in /proc";
}

}  // namespace

PeerListener::PeerListener(const base::Address& address, std::string accessLine)
    : m_acceptor(base::SocketListener::at(address)),
      m_accessLine(address.isUnix() ? std::string() : std::move(accessLine)) {
  if (isLocal(address) || !m_accessLine.empty()) return;
  base::logWarning("{}: everybody who reaches this address can connect; use --token-file", name());
}

std::optional<AcceptedPeer> PeerListener::accept() {
  base::UniqueFd socket = m_acceptor.accept();
  if (!socket) return std::nullopt;
  base::Peer peer = base::peerOf(socket.get());
  if (m_accessLine.empty() && peer.onThisMachine && !base::isTrustedUser(peer.user)) {
    base::logWarning(
        "{}: refused a peer that {}, not to user {}; run both as one user, or use --token-file",
        name(), userText(peer.user), geteuid());
    return std::nullopt;
  }
  return AcceptedPeer{std::move(socket), std::move(peer.host), protocol::AccessCheck(m_accessLine)};
}

}  // namespace lumsar::agent
