// HttpServer: as much of HTTP as the page needs: GET on the loopback interface, one request a
// connection, a bounded number of them, each on a thread of its own.
// Made by Viewer on the channel's thread; the handler runs on the connections' threads.
#ifndef LUMSAR_AGENT_OUTPUTS_WEB_HTTP_SERVER_H
#define LUMSAR_AGENT_OUTPUTS_WEB_HTTP_SERVER_H

#include <atomic>
#include <functional>
#include <list>
#include <string>
#include <string_view>
#include <thread>

#include "outputs/record.h"
#include "transport/address.h"
#include "transport/wakeup.h"

namespace lumsar::agent {

// One browser that waits for its answer. Bound to its connection's thread.
class HttpClient {
 public:
  explicit HttpClient(int socket) : m_socket(socket) {}

  // A whole answer. `headers` are lines, each ended by \r\n.
  void answer(std::string_view status, std::string_view type, std::string_view body,
              std::string_view headers = {});
  // The head of an answer without an end; send() follows until it is false.
  bool beginStream(std::string_view type);
  bool send(Bytes bytes);
  bool send(std::string_view text);
  // False when the browser has gone, found without sending.
  bool isThere() const;

 private:
  int m_socket;
};

class HttpServer {
 public:
  using Handler = std::function<void(const std::string& path, HttpClient& client)>;

  // Throws Failure when the port is taken.
  HttpServer(std::uint16_t port, Handler handler);
  HttpServer(const HttpServer&) = delete;
  HttpServer& operator=(const HttpServer&) = delete;
  // Ends all connections and joins their threads. The handler must end soon when its client does.
  ~HttpServer();

  std::uint16_t port() const;

 private:
  struct Connection {
    base::UniqueFd socket;
    std::atomic<bool> done{false};
    std::thread thread;
  };

  void run();
  void acceptOne();
  void serve(Connection& connection);
  void reap();

  const Handler m_handler;
  base::UniqueFd m_listener;
  Wakeup m_end;
  std::list<Connection> m_connections;  // of the accepting thread, then of the destructor
  std::thread m_thread;
};

}  // namespace lumsar::agent

#endif
