#include "transport/socket_transport.h"

#include <asio/connect.hpp>
#include <asio/dispatch.hpp>
#include <asio/ip/tcp.hpp>
#include <asio/local/stream_protocol.hpp>
#include <asio/post.hpp>

#include "asio/socket_write.h"
#include "base/errors.h"
#include "base/net/address.h"
#include "base/text/format.h"

namespace lumsar::host {

namespace {

constexpr std::chrono::milliseconds kFirstBackOff{100};
constexpr std::chrono::milliseconds kLongestBackOff{2000};

}  // namespace

Endpoints resolveAddress(const std::string& text) {
  const base::Address address = base::parseAddress(text);
  if (address.isUnix()) return {asio::local::stream_protocol::endpoint(address.path)};
  asio::io_context loop;
  asio::ip::tcp::resolver resolver(loop);
  asio::error_code error;
  const auto found = resolver.resolve(address.host, std::to_string(address.port), error);
  if (error || found.empty()) {
    throw base::Failure(base::text("cannot find \"{}\": {}", text, error.message()));
  }
  Endpoints endpoints;
  for (const auto& entry : found) endpoints.emplace_back(entry.endpoint());
  return endpoints;
}

SocketTransport::SocketTransport(asio::io_context& loop, SendQueue& queue, Inbox& inbox,
                                 const std::string& address, const std::string& accessLine)
    : m_loop(loop),
      m_queue(queue),
      m_inbox(inbox),
      m_address(address),
      m_accessLine(base::parseAddress(address).isUnix() ? std::string() : accessLine),
      m_endpoints(resolveAddress(address)),
      m_retry(loop),
      m_backOff(kFirstBackOff, kLongestBackOff) {
  m_queue.setSendNow([this](std::span<const unsigned char> bytes) { return sendNow(bytes); });
}

SocketTransport::~SocketTransport() {
  m_queue.setSendNow({});
}

void SocketTransport::start() {
  m_started = true;
  connect();
}

void SocketTransport::stop() {
  m_started = false;
  m_retry.cancel();
  if (m_connection) change(nullptr);
}

// The socket is open for as long as it is the current one: another thread may be sending on it.
void SocketTransport::change(ConnectionPtr connection) {
  const std::lock_guard lock(m_mutex);
  std::swap(m_connection, connection);
  if (connection) connection->socket.close();
}

std::size_t SocketTransport::sendNow(std::span<const unsigned char> bytes) {
  const std::lock_guard lock(m_mutex);
  return m_connection ? lumsar::sendNow(m_connection->socket, bytes) : 0;
}

void SocketTransport::wake() {
  asio::post(m_loop, [this] {
    if (m_connection && m_connection->sending.empty()) writeNext(m_connection);
  });
}

void SocketTransport::connect() {
  auto connection = std::make_shared<Connection>(m_loop);
  const auto connected = [this, connection](asio::error_code error, const auto& /*endpoint*/) {
    if (!m_started) return;
    if (error) {
      m_inbox.unavailable(m_address + ": " + error.message());
      return connectLater();
    }
    connection->socket.native_non_blocking(true);
    change(connection);
    m_backOff.reset();
    if (!m_accessLine.empty()) write(connection, {m_accessLine.begin(), m_accessLine.end()});
    m_inbox.opened();
    read(connection);
  };
  asio::async_connect(connection->socket, m_endpoints, connected);
}

void SocketTransport::connectLater() {
  m_retry.expires_after(m_backOff.next());
  m_retry.async_wait([this](asio::error_code error) {
    if (!error && m_started) connect();
  });
}

void SocketTransport::read(const ConnectionPtr& connection) {
  if (connection != m_connection) return;
  connection->socket.async_read_some(asio::buffer(connection->received),
                                     [this, connection](asio::error_code error, std::size_t size) {
                                       if (connection != m_connection) return;
                                       if (error) return lost(error.message());
                                       m_inbox.received({connection->received.data(), size});
                                       m_inbox.whenCapacity([this, connection] {
                                         asio::dispatch(m_loop,
                                                        [this, connection] { read(connection); });
                                       });
                                     });
}

void SocketTransport::writeNext(const ConnectionPtr& connection) {
  if (auto message = m_queue.pop()) write(connection, std::move(*message));
}

void SocketTransport::write(const ConnectionPtr& connection, SendQueue::Bytes bytes) {
  connection->sending = std::move(bytes);
  writeWhole(connection->socket, asio::buffer(connection->sending),
             [this, connection](asio::error_code error, std::size_t) {
               connection->sending.clear();
               if (connection != m_connection) return;
               if (error) return lost(error.message());
               writeNext(connection);
             });
}

void SocketTransport::lost(const std::string& why) {
  change(nullptr);
  m_queue.close();
  m_inbox.closed(why);
  connectLater();
}

}  // namespace lumsar::host
