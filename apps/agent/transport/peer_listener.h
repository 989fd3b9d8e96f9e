// PeerListener: accepts the peers that may connect. A Unix socket lets in its user and root only; a
// TCP socket lets in whom sends the access token, and without one whom the system knows to be of
// the same user or root, or who comes from another machine.
#pragma once

#include <optional>

#include "base/net/acceptor.h"
#include "protocol/access_token.h"

namespace lumsar::agent {

// A peer that has connected, and still has to send the token if there is one.
struct AcceptedPeer {
  base::UniqueFd socket;
  std::string host;  // empty over a Unix socket
  protocol::AccessCheck access;
};

class PeerListener {
 public:
  // `accessLine` is what readAccessLine() gives. Throws base::Failure.
  PeerListener(const base::Address& address, std::string accessLine);

  const std::string& name() const { return m_acceptor.name(); }
  int descriptor() const { return m_acceptor.descriptor(); }
  std::chrono::steady_clock::time_point resumes() const { return m_acceptor.resumes(); }
  // The next peer; nothing if none is waiting or it may not connect.
  std::optional<AcceptedPeer> accept();

 private:
  base::Acceptor m_acceptor;
  std::string m_accessLine;
};

}  // namespace lumsar::agent
