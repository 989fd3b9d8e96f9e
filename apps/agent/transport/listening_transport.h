// Stream sockets as transports: ListenTransport accepts one host at a time, SocketTransport is a
// connection that exists already.
#pragma once

#include "base/net/acceptor.h"
#include "transport/agent_transport.h"

namespace lumsar::agent {

class SocketTransport : public Transport {
 public:
  SocketTransport(base::UniqueFd socket, std::string name);

  int descriptor() const override { return m_socket.get(); }
  bool attached() const override { return static_cast<bool>(m_socket); }
  bool attach() override { return false; }
  ssize_t read(std::span<unsigned char> to) override;
  ssize_t write(std::span<const unsigned char> from) override;
  void detach() override { m_socket.reset(); }
  bool reusable() const override { return false; }
  bool requiresHello() const override { return true; }
  std::string name() const override { return m_name; }

 protected:
  void use(base::UniqueFd socket);

 private:
  base::UniqueFd m_socket;
  std::string m_name;
};

// A second host waits in the listener's backlog until the first has disconnected.
class ListenTransport : public SocketTransport {
 public:
  explicit ListenTransport(const base::Address& address);

  int descriptor() const override;
  bool attach() override;
  bool reusable() const override { return true; }

 private:
  base::Acceptor m_listener;
};

}  // namespace lumsar::agent
