// The page's HTTP server. Made by Viewer.
// run() is the accepting thread, serve() a connection's thread.
#include "outputs/web/http_server.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <system_error>
#include <utility>

#include "app/log.h"
#include "outputs/web/http_request.h"

namespace lumsar::agent {
namespace {

constexpr std::size_t kMostConnections = 32;
constexpr timeval kSendPatience{5, 0};

constexpr std::string_view kSafety =
    "Cache-Control: no-store\r\n"
    "X-Content-Type-Options: nosniff\r\n"
    "X-Frame-Options: DENY\r\n"
    "Cross-Origin-Resource-Policy: same-origin\r\n"
    "Referrer-Policy: no-referrer\r\n"
    "Connection: close\r\n";

}  // namespace

void HttpClient::answer(std::string_view status, std::string_view type, std::string_view body,
                        std::string_view headers) {
  const std::string head =
      text("HTTP/1.1 ", status, "\r\nContent-Type: ", type, "\r\nContent-Length: ", body.size(),
           "\r\n", kSafety, headers, "\r\n");
  if (send(head)) send(body);
}

bool HttpClient::beginStream(std::string_view type) {
  return send(text("HTTP/1.1 200 OK\r\nContent-Type: ", type, "\r\n", kSafety, "\r\n"));
}

bool HttpClient::send(std::string_view text) {
  return send(Bytes{reinterpret_cast<const unsigned char*>(text.data()), text.size()});
}

bool HttpClient::send(Bytes bytes) {
  while (!bytes.empty()) {
    const ssize_t sent = ::send(m_socket, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (sent < 0 && errno == EINTR) continue;
    if (sent <= 0) return false;
    bytes = bytes.subspan(static_cast<std::size_t>(sent));
  }
  return true;
}

bool HttpClient::isThere() const {
  unsigned char byte = 0;
  const ssize_t got = recv(m_socket, &byte, 1, MSG_PEEK | MSG_DONTWAIT);
  return got > 0 || (got < 0 && (errno == EAGAIN || errno == EINTR));
}

HttpServer::HttpServer(std::uint16_t port, Handler handler)
    : m_handler(std::move(handler)),
      m_listener(Address::loopback(port).listen()),
      m_thread([this] { run(); }) {}

HttpServer::~HttpServer() {
  m_end.wake();
  m_thread.join();
  for (auto& connection : m_connections) shutdown(connection.socket.get(), SHUT_RDWR);
  for (auto& connection : m_connections) connection.thread.join();
}

std::uint16_t HttpServer::port() const {
  sockaddr_in address{};
  socklen_t size = sizeof address;
  getsockname(m_listener.get(), reinterpret_cast<sockaddr*>(&address), &size);
  return ntohs(address.sin_port);
}

void HttpServer::run() {
  for (;;) {
    pollfd fds[] = {{m_end.descriptor(), POLLIN, 0}, {m_listener.get(), POLLIN, 0}};
    if (poll(fds, 2, -1) < 0) continue;
    if (fds[0].revents != 0) return;
    acceptOne();
  }
}

void HttpServer::acceptOne() {
  reap();
  base::UniqueFd socket(accept4(m_listener.get(), nullptr, nullptr, SOCK_CLOEXEC));
  if (!socket) return;
  setsockopt(socket.get(), SOL_SOCKET, SO_SNDTIMEO, &kSendPatience, sizeof kSendPatience);
  const int on = 1;  // the end of a picture must not wait for the next
  setsockopt(socket.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  if (m_connections.size() >= kMostConnections) {
    HttpClient(socket.get()).answer("503 Service Unavailable", "text/plain", "too many viewers\n");
    return;
  }
  Connection& connection = m_connections.emplace_back();
  connection.socket = std::move(socket);
  try {
    connection.thread = std::thread([this, &connection] { serve(connection); });
  } catch (const std::system_error&) {
    m_connections.pop_back();  // the machine has no thread left: this browser must try again
  }
}

void HttpServer::serve(Connection& connection) {
  HttpClient client(connection.socket.get());
  const std::string head = readRequestHead(connection.socket.get());
  const auto request = parseRequest(head);
  if (!request) {
    if (!head.empty()) client.answer("400 Bad Request", "text/plain", "this is no request\n");
  } else if (request->method != "GET") {
    client.answer("405 Method Not Allowed", "text/plain", "only GET is possible\n",
                  "Allow: GET\r\n");
  } else if (!isFromHere(*request)) {
    client.answer("403 Forbidden", "text/plain",
                  "only the page itself may ask for this; open http://127.0.0.1/ with the port\n");
  } else {
    m_handler(request->path, client);
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
