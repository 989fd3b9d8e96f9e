// SocketTransport: the channel as a Unix or TCP stream socket on which the guest agent listens.
#pragma once

#include <array>
#include <asio/generic/stream_protocol.hpp>
#include <asio/io_context.hpp>
#include <asio/steady_timer.hpp>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <vector>

#include "base/back_off.h"
#include "transport/inbox.h"
#include "transport/send_queue.h"
#include "transport/transport.h"

namespace lumsar::host {

using Endpoints = std::vector<asio::generic::stream_protocol::endpoint>;

// All endpoints that "unix:PATH" or "tcp:HOST:PORT" stands for, at least one. Throws UsageError
// when it is not a valid address, Failure when the host cannot be found.
Endpoints resolveAddress(const std::string& address);

class SocketTransport final : public Transport {
 public:
  // `accessLine`, if any, is sent first over TCP.
  SocketTransport(asio::io_context& loop, SendQueue& queue, Inbox& inbox,
                  const std::string& address, const std::string& accessLine = {});

  ~SocketTransport() override;

  void start() override;
  void stop() override;
  void wake() override;

 private:
  using Socket = asio::generic::stream_protocol::socket;
  // A completion that comes late is recognised by its connection not being the current one.
  struct Connection {
    explicit Connection(asio::io_context& loop) : socket(loop) {}
    Socket socket;
    SendQueue::Bytes sending;
    std::array<unsigned char, std::size_t{64} << 10U> received;
  };
  using ConnectionPtr = std::shared_ptr<Connection>;

  void connect();
  void connectLater();
  void read(const ConnectionPtr& connection);
  void writeNext(const ConnectionPtr& connection);
  void write(const ConnectionPtr& connection, SendQueue::Bytes bytes);
  void lost(const std::string& why);
  void change(ConnectionPtr connection);
  std::size_t sendNow(std::span<const unsigned char> bytes);

  asio::io_context& m_loop;
  SendQueue& m_queue;
  Inbox& m_inbox;
  std::string m_address;
  std::string m_accessLine;
  Endpoints m_endpoints;
  asio::steady_timer m_retry;
  base::BackOff m_backOff;
  bool m_started = false;
  std::mutex m_mutex;          // the loop changes the connection, any thread sends
  ConnectionPtr m_connection;  // the open one, if any
};

}  // namespace lumsar::host
