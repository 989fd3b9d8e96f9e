#include "socket_transport.h"

#include <asio/ip/tcp.hpp>
#include <asio/local/stream_protocol.hpp>
#include <asio/post.hpp>
#include <asio/write.hpp>
#include <stdexcept>

namespace lumsar::host {

namespace {

constexpr std::chrono::milliseconds kFirstPause{100};
constexpr std::chrono::milliseconds kLongestPause{2000};

asio::ip::tcp::endpoint parseTcp(const std::string& hostAndPort) {
  const auto colon = hostAndPort.rfind(':');
  if (colon == std::string::npos || colon == 0) {
    throw std::runtime_error("\"" + hostAndPort + "\" is no HOST:PORT");
  }
  asio::io_context loop;
  asio::ip::tcp::resolver resolver(loop);
  asio::error_code error;
  const auto found =
      resolver.resolve(hostAndPort.substr(0, colon), hostAndPort.substr(colon + 1), error);
  if (error || found.empty()) {
    throw std::runtime_error("cannot find \"" + hostAndPort + "\": " + error.message());
  }
  return found.begin()->endpoint();
}

}  // namespace

asio::generic::stream_protocol::endpoint parseAddress(const std::string& address) {
  if (address.starts_with("unix:")) {
    try {
      return asio::local::stream_protocol::endpoint(address.substr(5));
    } catch (const std::exception&) {
      throw std::runtime_error("socket path too long, at most 107 bytes: " + address.substr(5));
    }
  }
  if (address.starts_with("tcp:")) return parseTcp(address.substr(4));
  throw std::runtime_error("\"" + address + "\" is no address: use unix:PATH or tcp:HOST:PORT");
}

SocketTransport::SocketTransport(asio::io_context& loop, SendQueue& queue,
                                 const std::string& address)
    : m_loop(loop),
      m_queue(queue),
      m_endpoint(parseAddress(address)),
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
  connection->socket.async_connect(m_endpoint, [this, connection](asio::error_code error) {
    if (m_listener == nullptr) return;
    if (error) return connectLater();
    connection->socket.native_non_blocking(true);
    m_connection = connection;
    m_pause = kFirstPause;
    read(connection);
    m_listener->channelOpened();
    writeNext(connection);
  });
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
