// A line between clients and a server, both on Unix sockets, that carries no more than so many
// bytes a second to the server, and whatever comes to the client. One thread a connection.
#pragma once

#include <atomic>
#include <functional>
#include <list>
#include <string>
#include <thread>

#include "support/raw_peer.h"

namespace lumsar::test {

struct LineQuality {
  std::size_t bytesPerSecond = 0;
  milliseconds delay{0};  // each way
  // Of packets to the server. As on a TCP connection, what is behind a lost one comes after it,
  // when that has come again: a round trip later.
  double losses = 0;
  // What has arrived at the server, on the connection's thread.
  std::function<void(View bytes)> onArrival = {};
};

class SlowLine {
 public:
  SlowLine(const std::string& clientSide, std::string serverSide, LineQuality quality);
  SlowLine(const std::string& clientSide, std::string serverSide, std::size_t bytesPerSecond)
      : SlowLine(clientSide, std::move(serverSide), LineQuality{.bytesPerSecond = bytesPerSecond}) {
  }
  ~SlowLine();
  SlowLine(const SlowLine&) = delete;
  SlowLine& operator=(const SlowLine&) = delete;

  // While it is cut, nothing arrives on either side, and nothing is lost.
  void cut(bool cut) { m_cut = cut; }

 private:
  void accept();
  void carry(const RawPeer& client) const;

  const std::string m_serverSide;
  const LineQuality m_quality;
  const RawListener m_listener;
  std::atomic<bool> m_stopping{false};
  std::atomic<bool> m_cut{false};
  std::list<std::jthread> m_connections;
  std::thread m_thread;
};

}  // namespace lumsar::test
