// A line between clients and a server, both on Unix sockets, that carries no more than so many
// bytes a second to the server, and whatever comes to the client. One thread a connection.
#pragma once

#include <atomic>
#include <list>
#include <string>
#include <thread>

#include "support/raw_peer.h"

namespace lumsar::test {

class SlowLine {
 public:
  SlowLine(const std::string& clientSide, std::string serverSide, std::size_t bytesPerSecond);
  ~SlowLine();
  SlowLine(const SlowLine&) = delete;
  SlowLine& operator=(const SlowLine&) = delete;

 private:
  void accept();
  void carry(const RawPeer& client) const;

  const std::string m_serverSide;
  const std::size_t m_bytesPerTick;
  const RawListener m_listener;
  std::atomic<bool> m_stopping{false};
  std::list<std::jthread> m_connections;
  std::thread m_thread;
};

}  // namespace lumsar::test
