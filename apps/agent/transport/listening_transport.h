// Stream sockets as transports: ListenTransport accepts one host at a time, SocketTransport is a
// connection that exists already.
#pragma once

#include "transport/agent_transport.h"
#include "transport/peer_listener.h"

namespace lumsar::agent {

class SocketTransport : public Transport {
 public:
  SocketTransport(AcceptedPeer peer, std::string name);

  int descriptor() const override { return m_peer.socket.get(); }
  bool attached() const override { return static_cast<bool>(m_peer.socket); }
  bool attach() override { return false; }
  ssize_t read(std::span<unsigned char> to) override;
  ssize_t write(std::span<const unsigned char> from) override;
  void detach() override { m_peer.socket.reset(); }
  bool reusable() const override { return false; }
  bool requiresHello() const override { return true; }
  std::string name() const override { return m_name; }
  std::string peerHost() const override { return m_peer.host; }

 protected:
  explicit SocketTransport(std::string name) : m_name(std::move(name)) {}
  void use(AcceptedPeer peer);

 private:
  ssize_t checkAccess(std::span<unsigned char> received);

  AcceptedPeer m_peer;
  std::string m_name;
};

// A second host waits in the listener's backlog until the first has disconnected.
class ListenTransport : public SocketTransport {
 public:
  ListenTransport(const base::Address& address, std::string accessLine);

  int descriptor() const override;
  bool attach() override;
  std::chrono::steady_clock::time_point nextAttempt() const override {
    return m_listener.resumes();
  }
  bool reusable() const override { return true; }

 private:
  PeerListener m_listener;
};

}  // namespace lumsar::agent
