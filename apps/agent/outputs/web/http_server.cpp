#include "outputs/web/http_server.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <system_error>
#include <utility>

#include "base/files.h"
#include "base/log.h"
#include "outputs/web/http_request.h"

namespace lumsar::agent {
namespace {

constexpr std::size_t kMaxConnections = 32;
constexpr int kTurnMs = 500;  // how soon connections that have ended give back what they hold
constexpr timeval kSendTimeout{5, 0};

constexpr std::string_view kSecurityHeaders =
    "Cache-Control: no-store\r\n"
    "X-Content-Type-Options: nosniff\r\n"
    "X-Frame-Options: DENY\r\n"
    "Cross-Origin-Resource-Policy: same-origin\r\n"
    "Referrer-Policy: no-referrer\r\n"
    "Connection: close\r\n";

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

HttpServer::HttpServer(std::uint16_t port, Handler handler)
    : m_handler(std::move(handler)),
      m_listener(base::SocketListener::at(base::Address::loopback(port))),
      m_thread([this] { run(); }) {}

HttpServer::~HttpServer() {
  m_end.wake();
  m_thread.join();
  for (auto& connection : m_connections) shutdown(connection.socket.get(), SHUT_RDWR);
  for (auto& connection : m_connections) connection.thread.join();
}

std::uint16_t HttpServer::port() const {
  return base::parseAddress(m_listener.name()).port;
}

void HttpServer::run() {
  for (;;) {
    pollfd fds[] = {{m_end.get(), POLLIN, 0}, {m_listener.descriptor(), POLLIN, 0}};
    if (poll(fds, 2, kTurnMs) < 0) continue;
    if (fds[0].revents != 0) return;
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
  if (m_connections.size() >= kMaxConnections) {
    HttpResponse(socket.get())
        .send("503 Service Unavailable", "text/plain", "too many connections\n");
    return;
  }
  Connection& connection = m_connections.emplace_back();
  connection.socket = std::move(socket);
  try {
    connection.thread = std::thread([this, &connection] { serve(connection); });
  } catch (const std::system_error&) {
    m_connections.pop_back();  // out of threads: this browser has to try again
  }
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
    response.send("403 Forbidden", "text/plain",
                  "only the page itself may request this; open http://127.0.0.1:PORT/\n");
  } else {
    m_handler(request->path, response);
  }
  shutdown(connection.socket.get(), SHUT_RDWR);
  connection.done = true;
}

void HttpServer::reap() {
  m_connections.remove_if([](Connection& connection) {
    if (!connection.done) return false;
    connection.thread.join();
    return true;
  });
}

}  // namespace lumsar::agent
