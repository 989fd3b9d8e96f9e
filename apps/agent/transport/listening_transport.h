// Transports over stream sockets: ListenTransport waits for one host at a time, SocketTransport is
// a connection that exists already. Owned by a Peer. Bound to the channel's thread.
#ifndef LUMSAR_AGENT_TRANSPORT_LISTENING_TRANSPORT_H
#define LUMSAR_AGENT_TRANSPORT_LISTENING_TRANSPORT_H

#include "transport/address.h"
#include "transport/agent_transport.h"

namespace lumsar::agent {

class SocketTransport : public Transport {
 public:
  SocketTransport(base::UniqueFd connection, std::string name);

  int descriptor() const override { return m_connection.get(); }
  bool attached() const override { return static_cast<bool>(m_connection); }
  bool attach() override { return false; }
  ssize_t read(std::span<unsigned char> to) override;
  ssize_t write(std::span<const unsigned char> from) override;
  void detach() override { m_connection.reset(); }
  bool reusable() const override { return false; }
  bool mustGreet() const override { return true; }
  std::string name() const override { return m_name; }

 protected:
  void use(base::UniqueFd connection);

 private:
  base::UniqueFd m_connection;
  std::string m_name;
};

// A second host waits in the listener's queue until the first has left.
class ListenTransport : public SocketTransport {
 public:
  explicit ListenTransport(const Address& address);
  ~ListenTransport() override;

  int descriptor() const override;
  bool attach() override;
  bool reusable() const override { return true; }
  std::string name() const override { return "host"; }

 private:
  Address m_address;
  base::UniqueFd m_listener;
};

}  // namespace lumsar::agent

#endif
