// TcpLink: a connection of the service's own to a VM, for "sharetcp". Connects, greets the VM and,
// once the VM has echoed the greeting's token, carries camera data both ways in the same messages
// as the VM channel.
//
//   connect --> MSG_HELLO (token) --> VM's MSG_HELLO (same token) --> ready: MSG_DATA both ways
//
// Bound to the io_context's thread, where its handlers are called.
#ifndef LUMSAR_CAMERA_SERVICE_LINKS_TCP_LINK_H
#define LUMSAR_CAMERA_SERVICE_LINKS_TCP_LINK_H

#include <asio/ip/tcp.hpp>
#include <asio/steady_timer.hpp>
#include <functional>
#include <memory>
#include <span>

#include "ipc/server/message_stream.h"
#include "links/vm_link.h"

namespace lumsar::service {

class TcpLink : public VmLink, public std::enable_shared_from_this<TcpLink> {
 public:
  struct Handlers {
    std::function<void()> onReady;
    std::function<void(std::span<const unsigned char> record)> onRecord;
    std::function<void(const std::string& why)> onEnd;  // once; never after close()
  };
  // For the whole of connecting and greeting.
  static constexpr std::chrono::milliseconds kLimit{5000};

  TcpLink(asio::io_context& io, const asio::ip::tcp::endpoint& vm, Handlers handlers);

  void start();
  void close();

  bool ready() const override { return m_ready; }
  std::uint32_t dataType() const override { return MSG_DATA; }
  void send(ipc::Outgoing outgoing) override;
  std::string name() const override;

 private:
  void greet();
  void onMessage(std::span<const unsigned char> message);
  void end(const std::string& why);

  asio::ip::tcp::socket m_socket;  // until it is connected; m_stream's afterwards
  const asio::ip::tcp::endpoint m_vm;
  Handlers m_handlers;
  asio::steady_timer m_limit;
  std::shared_ptr<ipc::MessageStream> m_stream;
  std::uint16_t m_token = 0;
  bool m_ready = false;
  bool m_ended = false;
};

// "tcp 10.0.0.7:5000", as TcpLink::name().
std::string addressText(const asio::ip::tcp::endpoint& endpoint);

}  // namespace lumsar::service

#endif
