// HttpServer: just the HTTP that the page needs: GET on the loopback interface, one request per
// connection, a bounded number of connections, in all and per user, each on its own thread.
#pragma once

#include <atomic>
#include <functional>
#include <list>
#include <string>
#include <string_view>
#include <thread>

#include "base/net/acceptor.h"
#include "base/system/event_fd.h"
#include "base/text/bytes.h"

namespace lumsar::agent {

// The response to one request.
class HttpResponse {
 public:
  explicit HttpResponse(int socket) : m_socket(socket) {}

  // The complete response. `headers` are lines, each ended by \r\n.
  void send(std::string_view status, std::string_view type, std::string_view body,
            std::string_view headers = {});
  // The head of a response without an end; write() follows until it returns false.
  bool beginStream(std::string_view type);
  bool write(base::Bytes bytes);
  bool write(std::string_view text) { return write(base::bytesOf(text)); }
  // False when the browser has disconnected, found without writing.
  bool isConnected() const;

 private:
  int m_socket;
};

class HttpServer {
 public:
  // Called on its own thread.
  using Handler = std::function<void(const std::string& path, HttpResponse& response)>;

  // Answers only requests with `key`. Throws base::Failure when the port is in use.
  HttpServer(std::uint16_t port, std::string key, Handler handler);
  HttpServer(const HttpServer&) = delete;
  HttpServer& operator=(const HttpServer&) = delete;
  // Ends all connections and joins their threads. The handler has to return soon once its response
  // is no longer connected.
  ~HttpServer();

  std::uint16_t port() const;

 private:
  struct Connection {
    base::UniqueFd socket;
    std::string client;
    std::atomic<bool> done{false};
    std::thread thread;
  };

  void run();
  void acceptOne();
  void serve(Connection& connection);
  void reap();
  bool hasPlaceFor(const std::string& client) const;

  const std::string m_key;
  const Handler m_handler;
  base::Acceptor m_listener;
  base::EventFd m_wakeUp;  // a connection has ended, or all is to end
  std::atomic<bool> m_ending{false};
  std::list<Connection> m_connections;  // used by the accepting thread, then by the destructor
  std::thread m_thread;
};

}  // namespace lumsar::agent
