#include "transport/socket_transport.h"

#include <asio/connect.hpp>
#include <asio/ip/tcp.hpp>
#include <asio/local/stream_protocol.hpp>
#include <asio/post.hpp>
#include <asio/write.hpp>
#include <stdexcept>

#include "app/host_options.h"

namespace lumsar::host {

namespace {

constexpr std::chrono::milliseconds kFirstPause{100};
constexpr std::chrono::milliseconds kLongestPause{2000};

Endpoints parseTcp(const std::string& hostAndPort) {
  const auto colon = hostAndPort.rfind(':');
  if (colon == std::string::npos || colon == 0) {
    throw UsageError("\"" + hostAndPort + "\" is no HOST:PORT");
  }
  std::string host = hostAndPort.substr(0, colon);
  if (host.starts_with('[') && host.ends_with(']')) host = host.substr(1, host.size() - 2);
  asio::io_context loop;
  asio::ip::tcp::resolver resolver(loop);
  asio::error_code error;
  const auto found = resolver.resolve(host, hostAndPort.substr(colon + 1), error);
  if (error || found.empty()) {
    throw std::runtime_error("cannot find \"" + hostAndPort + "\": " + error.message());
  }
  Endpoints endpoints;
  for (const auto& entry : found) endpoints.emplace_back(entry.endpoint());
  return endpoints;
}

}  // namespace

Endpoints parseAddress(const std::string& address) {
  if (address.starts_with("unix:")) {
    try {
      return {asio::local::stream_protocol::endpoint(address.substr(5))};
    } catch (const std::exception&) {
      throw UsageError("socket path too long, at most 107 bytes: " + address.substr(5));
    }
  }
  if (address.starts_with("tcp:")) return parseTcp(address.substr(4));
  throw UsageError("\"" + address + "\" is no address: use unix:PATH or tcp:HOST:PORT");
}

SocketTransport::SocketTransport(asio::io_context& loop, SendQueue& queue,
                                 const std::string& address)
    : m_loop(loop),
      m_queue(queue),
      m_address(address),
      m_endpoints(parseAddress(address)),
      m_retry(loop),
      m_pause(kFirstPause) {}

void SocketTransport::start(Listener& listener) {
  m_listener = &listener;
  connect();
}

void SocketTransport::stop() {
  m_listener = nullptr;
  m_retry.cancel();
  if (m_connection) m_connection->socket.close();
  m_connection.reset();
}

void SocketTransport::wake() {
  asio::post(m_loop, [this] {
    if (m_connection && m_connection->sending.empty()) writeNext(m_connection);
  });
}

void SocketTransport::connect() {
  auto connection = std::make_shared<Connection>(m_loop);
  const auto connected = [this, connection](asio::error_code error, const auto& /*endpoint*/) {
    if (m_listener == nullptr) return;
    if (error) {
      m_listener->channelTrouble(m_address + ": " + error.message());
      return connectLater();
    }
    connection->socket.native_non_blocking(true);
    m_connection = connection;
    m_pause = kFirstPause;
    read(connection);
    m_listener->channelOpened();
    writeNext(connection);
  };
  asio::async_connect(connection->socket, m_endpoints, connected);
}

void SocketTransport::connectLater() {
  m_retry.expires_after(m_pause);
  m_pause = std::min(m_pause * 2, kLongestPause);
  m_retry.async_wait([this](asio::error_code error) {
    if (!error && m_listener != nullptr) connect();
  });
}

void SocketTransport::read(const std::shared_ptr<Connection>& connection) {
  connection->socket.async_read_some(
      asio::buffer(connection->received),
      [this, connection](asio::error_code error, std::size_t size) {
        if (connection != m_connection || m_listener == nullptr) return;
        if (error) return lost(connection, error.message());
        m_listener->channelReceived({connection->received.data(), size});
        if (connection == m_connection) read(connection);
      });
}

void SocketTransport::writeNext(const std::shared_ptr<Connection>& connection) {
  if (connection != m_connection) return;
  auto message = m_queue.pop();
  if (!message) return;
  connection->sending = std::move(*message);
  asio::async_write(connection->socket, asio::buffer(connection->sending),
                    [this, connection](asio::error_code error, std::size_t) {
                      connection->sending.clear();
                      if (connection != m_connection || m_listener == nullptr) return;
                      if (error) return lost(connection, error.message());
                      writeNext(connection);
                    });
}

void SocketTransport::lost(const std::shared_ptr<Connection>& connection, const std::string& why) {
  connection->socket.close();
  m_connection.reset();
  m_listener->channelClosed(why);
  connectLater();
}

}  // namespace lumsar::host
