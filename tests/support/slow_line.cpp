#include "support/slow_line.h"

#include <sys/socket.h>

namespace lumsar::test {
namespace {

constexpr milliseconds kTick{10};
constexpr std::size_t kTicksPerSecond = 100;
constexpr int kHeldByTheLine = 16 << 10;  // little, as on a real one

// What is there now and fits; false at the end.
bool forward(const RawPeer& from, const RawPeer& to, Bytes& buffer) {
  const ssize_t size = recv(from.fd(), buffer.data(), buffer.size(), MSG_DONTWAIT);
  if (size < 0) return true;
  return size > 0 && to.send(View(buffer).first(static_cast<std::size_t>(size)));
}

}  // namespace

SlowLine::SlowLine(const std::string& clientSide, std::string serverSide,
                   std::size_t bytesPerSecond)
    : m_serverSide(std::move(serverSide)),
      m_bytesPerTick(bytesPerSecond / kTicksPerSecond),
      m_listener(clientSide),
      m_thread([this] { accept(); }) {}

SlowLine::~SlowLine() {
  m_stopping = true;
  m_thread.join();
}

void SlowLine::accept() {
  while (!m_stopping) {
    RawPeer client = m_listener.accept(kTick);
    if (!client.connected()) continue;
    setsockopt(client.fd(), SOL_SOCKET, SO_RCVBUF, &kHeldByTheLine, sizeof kHeldByTheLine);
    m_connections.emplace_back([this, client = std::move(client)] { carry(client); });
  }
}

void SlowLine::carry(const RawPeer& client) const {
  const RawPeer server(m_serverSide);
  Bytes toServer(m_bytesPerTick);
  Bytes toClient(1U << 20U);
  while (!m_stopping && forward(client, server, toServer) && forward(server, client, toClient)) {
    std::this_thread::sleep_for(kTick);
  }
}

}  // namespace lumsar::test
