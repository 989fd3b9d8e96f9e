// A line between clients and a server, both on Unix sockets, that sees each complete message to the
// server. One thread a connection.
#pragma once

#include <atomic>
#include <functional>
#include <list>
#include <string>
#include <thread>

#include "support/raw_peer.h"

namespace lumsar::test {

class Relay {
 public:
  // Passes a message on to `server`; false ends the connection. Called by the connections' threads.
  using Pass = std::function<bool(View message, const RawPeer& server)>;
  enum class Observed { ToServer, ToClient };

  // Whoever connects while nobody listens at `serverSide` is disconnected at once.
  Relay(const std::string& clientSide, std::string serverSide, Observed observed, Pass pass);
  ~Relay();
  Relay(const Relay&) = delete;
  Relay& operator=(const Relay&) = delete;

 private:
  void accept();
  void carry(const RawPeer& client) const;

  const std::string m_serverSide;
  const Observed m_observed;
  const Pass m_pass;
  const RawListener m_listener;
  std::atomic<bool> m_stopping{false};
  std::list<std::jthread> m_connections;
  std::thread m_thread;
};

}  // namespace lumsar::test
