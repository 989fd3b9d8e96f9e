// TcpTransport: the service's own connection to a VM, for "sharetcp". Once the VM has answered the
// handshake, it carries camera data both ways in the same messages as the VM channel.
//
//   resolve a name --> connect --> access token, if any --> MSG_HELLO (token) --> VM's MSG_HELLO
//   (same token) --> ready: MSG_DATA both ways
//
#pragma once

#include <asio/ip/tcp.hpp>
#include <asio/steady_timer.hpp>
#include <functional>
#include <memory>
#include <vector>

#include "transports/direct_networks.h"
#include "transports/vm_address.h"
#include "transports/vm_transport.h"

namespace lumsar::service {

class TcpTransport : public VmTransport, public std::enable_shared_from_this<TcpTransport> {
 public:
  struct Handlers {
    std::function<void()> onReady;
    std::function<void(base::Bytes record)> onRecord;
    std::function<void(const std::string& why)> onEnd;  // once; never after close()
  };
  // For resolving, connecting and the handshake together.
  static constexpr std::chrono::milliseconds kConnectTimeout{5000};

  // `allowed`, which outlives it, is asked about what a name resolves to. `accessLine`, if any, is
  // sent first.
  TcpTransport(asio::io_context& io, VmAddress vm, const DirectNetworks& allowed,
               std::string accessLine, Handlers handlers);

  void start();
  void close();

  bool ready() const override { return m_ready; }
  std::uint32_t dataType() const override { return MSG_DATA; }
  void send(ipc::Outgoing outgoing) override;
  std::string name() const override;

 private:
  using Endpoints = std::vector<asio::ip::tcp::endpoint>;
  void resolve();
  Endpoints allowedOf(const asio::ip::tcp::resolver::results_type& found) const;
  void connect(const Endpoints& endpoints);
  void sendHello();
  void sendAccessLine();
  void onMessage(base::Bytes message);
  void onHello(base::Bytes message);
  void end(const std::string& why);

  asio::ip::tcp::resolver m_resolver;
  asio::ip::tcp::socket m_socket;  // until it is connected; m_stream's afterwards
  const VmAddress m_vm;
  const DirectNetworks& m_allowed;
  const std::string m_accessLine;
  Handlers m_handlers;
  asio::steady_timer m_timer;
  std::shared_ptr<ipc::MessageStream> m_stream;
  std::uint16_t m_token = 0;
  bool m_ready = false;
  bool m_ended = false;
};

}  // namespace lumsar::service
