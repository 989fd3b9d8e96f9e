#include "integration/rdp/slow_line.h"

#include <chrono>
#include <vector>

#include "integration/rdp/unix_socket.h"

namespace lumsar_test {

namespace {

constexpr std::chrono::milliseconds kTick{10};
constexpr std::size_t kTicksPerSecond = 100;

// What is there now and fits; false at the end.
bool forward(int from, int to, std::vector<char>& room) {
  const ssize_t size = recv(from, room.data(), room.size(), MSG_DONTWAIT);
  if (size < 0) return true;
  for (ssize_t done = 0; done < size;) {
    const ssize_t sent =
        send(to, room.data() + done, static_cast<std::size_t>(size - done), MSG_NOSIGNAL);
    if (sent <= 0) return false;
    done += sent;
  }
  return size > 0;
}

}  // namespace

SlowLine::SlowLine(const std::string& clientSide, std::string serverSide,
                   std::size_t bytesPerSecond)
    : m_serverSide(std::move(serverSide)),
      m_bytesPerTick(bytesPerSecond / kTicksPerSecond),
      m_listener(listenAt(clientSide)),
      m_thread([this] { run(); }) {}

SlowLine::~SlowLine() {
  m_stopping = true;
  m_thread.join();
  close(m_listener);
}

void SlowLine::run() {
  while (!m_stopping) {
    const int client = acceptSoon(m_listener);
    if (client < 0) continue;
    const int server = connectTo(m_serverSide);
    if (server >= 0) carry(client, server);
    close(client);
    close(server);
  }
}

void SlowLine::carry(int client, int server) {
  std::vector<char> toServer(m_bytesPerTick);
  std::vector<char> toClient(1U << 20U);
  while (!m_stopping && forward(client, server, toServer) && forward(server, client, toClient)) {
    std::this_thread::sleep_for(kTick);
  }
}

}  // namespace lumsar_test
