#include "outputs/web/http_server.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <utility>

#include "base/deadline.h"
#include "base/log.h"
#include "base/net/peer.h"
#include "base/system/files.h"
#include "outputs/web/http_request.h"
#include "outputs/web/page_key.h"

namespace lumsar::agent {
namespace {

constexpr std::size_t kMaxConnections = 64;
constexpr std::ptrdiff_t kMaxConnectionsPerClient = 12;  // a browser opens six
constexpr timeval kSendTimeout{5, 0};

constexpr std::string_view kSecurityHeaders =
    "Cache-Control: no-store\r\n"
    "X-Content-Type-Options: nosniff\r\n"
    "X-Frame-Options: DENY\r\n"
    "Cross-Origin-Resource-Policy: same-origin\r\n"
    "Referrer-Policy: no-referrer\r\n"
    "Connection: close\r\n";

// A user of this machine, who cannot be told apart by the address.
std::string clientOf(int socket) {
  const base::Peer peer = base::peerOf(socket);
  return peer.user ? base::text("user {}", *peer.user) : peer.host;
}

}  // namespace

void HttpResponse::send(std::string_view status, std::string_view type, std::string_view body,
                        std::string_view headers) {
  const std::string head =
      base::text("HTTP/1.1 {}\r\nContent-Type: {}\r\nContent-Length: {}\r\n{}{}\r\n", status, type,
                 body.size(), kSecurityHeaders, headers);
  if (write(head)) write(body);
}

bool HttpResponse::beginStream(std::string_view type) {
  return write(base::text("HTTP/1.1 200 OK\r\nContent-Type: {}\r\n{}\r\n", type, kSecurityHeaders));
}

bool HttpResponse::write(base::Bytes bytes) {
  return base::sendAll(m_socket, bytes);
}

bool HttpResponse::isConnected() const {
  unsigned char byte = 0;
  const ssize_t got = recv(m_socket, &byte, 1, MSG_PEEK | MSG_DONTWAIT);
  return got > 0 || (got < 0 && (errno == EAGAIN || errno == EINTR));
}

HttpServer::HttpServer(std::uint16_t port, std::string key, Handler handler)
    : m_key(std::move(key)),
      m_handler(std::move(handler)),
      m_listener(base::SocketListener::at(base::Address::loopback(port))),
      m_thread([this] { run(); }) {}

HttpServer::~HttpServer() {
  m_ending = true;
  m_wakeUp.wake();
  m_thread.join();
  for (auto& connection : m_connections) shutdown(connection.socket.get(), SHUT_RDWR);
  for (auto& connection : m_connections) connection.thread.join();
}

std::uint16_t HttpServer::port() const {
  return base::parseAddress(m_listener.name()).port;
}

void HttpServer::run() {
  while (!m_ending) {
    // Before the descriptor is asked for: a pause that ends in between lasts no longer.
    const int timeout = base::pollTimeout(m_listener.resumes());
    pollfd fds[] = {{m_wakeUp.get(), POLLIN, 0}, {m_listener.descriptor(), POLLIN, 0}};
    if (poll(fds, 2, timeout) < 0) continue;
    if (fds[0].revents != 0) m_wakeUp.clear();
    reap();
    if (fds[1].revents != 0) acceptOne();
  }
}

void HttpServer::acceptOne() {
  base::UniqueFd socket = m_listener.accept();
  if (!socket) return;
  setsockopt(socket.get(), SOL_SOCKET, SO_SNDTIMEO, &kSendTimeout, sizeof kSendTimeout);
  const int on = 1;  // the end of a frame must not wait for the next
  setsockopt(socket.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  const std::string client = clientOf(socket.get());
  if (!hasPlaceFor(client)) {
    HttpResponse(socket.get())
        .send("503 Service Unavailable", "text/plain", "too many connections\n");
    return;
  }
  Connection& connection = m_connections.emplace_back();
  connection.socket = std::move(socket);
  connection.client = client;
  try {
    connection.thread = std::thread([this, &connection] { serve(connection); });
  } catch (const std::system_error&) {
    m_connections.pop_back();  // out of threads: this browser has to try again
  }
}

bool HttpServer::hasPlaceFor(const std::string& client) const {
  const auto same = std::ranges::count(m_connections, client, &Connection::client);
  return m_connections.size() < kMaxConnections && same < kMaxConnectionsPerClient;
}

void HttpServer::serve(Connection& connection) {
  HttpResponse response(connection.socket.get());
  const std::string head = readRequestHead(connection.socket.get());
  const auto request = parseRequest(head);
  if (!request) {
    if (!head.empty())
      response.send("400 Bad Request", "text/plain", "this is not a valid request\n");
  } else if (request->method != "GET") {
    response.send("405 Method Not Allowed", "text/plain", "only GET is supported\n",
                  "Allow: GET\r\n");
  } else if (!isFromHere(*request)) {
    response.send(
        "403 Forbidden", "text/plain",
        "only the page itself may request this; open the address that lumsar-agent has logged\n");
  } else if (!hasKey(*request, m_key)) {
    response.send("403 Forbidden", "text/plain",
                  "this address lacks the key; open the one that lumsar-agent has logged\n");
  } else {
    m_handler(request->path, response);
  }
  shutdown(connection.socket.get(), SHUT_RDWR);
  connection.done = true;
  m_wakeUp.wake();
}

void HttpServer::reap() {
  m_connections.remove_if([](Connection& connection) {
    if (!connection.done) return false;
    connection.thread.join();
    return true;
  });
}

}  // namespace lumsar::agent
