// SlowLine: a line between a client and a server, both at Unix sockets, that carries no more than
// so many bytes a second to the server, and whatever comes to the client. One client at a time,
// served by a thread of its own.
#ifndef LUMSAR_TESTS_INTEGRATION_RDP_SLOW_LINE_H
#define LUMSAR_TESTS_INTEGRATION_RDP_SLOW_LINE_H

#include <atomic>
#include <string>
#include <thread>

namespace lumsar_test {

class SlowLine {
 public:
  SlowLine(const std::string& clientSide, std::string serverSide, std::size_t bytesPerSecond);
  ~SlowLine();
  SlowLine(const SlowLine&) = delete;
  SlowLine& operator=(const SlowLine&) = delete;

 private:
  void run();
  void carry(int client, int server);

  std::string m_serverSide;
  std::size_t m_bytesPerTick;
  int m_listener;
  std::atomic<bool> m_stopping{false};
  std::thread m_thread;
};

}  // namespace lumsar_test

#endif
