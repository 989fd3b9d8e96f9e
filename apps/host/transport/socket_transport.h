// SocketTransport: the channel as a Unix or TCP stream socket on which the VM's side listens.
// Runs on the main loop.
#ifndef LUMSAR_HOST_TRANSPORT_SOCKET_TRANSPORT_H
#define LUMSAR_HOST_TRANSPORT_SOCKET_TRANSPORT_H

#include <array>
#include <asio/generic/stream_protocol.hpp>
#include <asio/io_context.hpp>
#include <asio/steady_timer.hpp>
#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "transport/send_queue.h"
#include "transport/transport.h"

namespace lumsar::host {

using Endpoints = std::vector<asio::generic::stream_protocol::endpoint>;

// "unix:PATH" or "tcp:HOST:PORT" as all endpoints that it stands for, at least one. Throws
// UsageError when it is no such address, std::runtime_error when the host cannot be found.
Endpoints parseAddress(const std::string& address);

class SocketTransport final : public Transport {
 public:
  SocketTransport(asio::io_context& loop, SendQueue& queue, const std::string& address);

  void start(Listener& listener) override;
  void stop() override;
  void wake() override;

 private:
  using Socket = asio::generic::stream_protocol::socket;
  // One connection; what a stale completion brings is recognised by its connection being old.
  struct Connection {
    explicit Connection(asio::io_context& loop) : socket(loop) {}
    Socket socket;
    SendQueue::Bytes sending;
    std::array<unsigned char, std::size_t{64} << 10U> received;
  };

  void connect();
  void connectLater();
  void read(const std::shared_ptr<Connection>& connection);
  void writeNext(const std::shared_ptr<Connection>& connection);
  void lost(const std::shared_ptr<Connection>& connection, const std::string& why);

  asio::io_context& m_loop;
  SendQueue& m_queue;
  std::string m_address;
  Endpoints m_endpoints;
  asio::steady_timer m_retry;
  std::chrono::milliseconds m_pause;
  Listener* m_listener = nullptr;
  std::shared_ptr<Connection> m_connection;  // the open one, if any
};

}  // namespace lumsar::host

#endif
