#include "support/slow_line.h"

#include <sys/socket.h>

#include <algorithm>
#include <deque>
#include <random>

namespace lumsar::test {
namespace {

using Clock = std::chrono::steady_clock;

constexpr milliseconds kTick{10};
constexpr double kTicksPerSecond = 100;
constexpr int kHeldByTheLine = 16 << 10;  // little, as on a real one
constexpr double kPacket = 1448;          // bytes
constexpr std::size_t kAll = 1U << 20U;

// One way of a connection: what comes is on its way for a while.
class Way {
 public:
  Way(const RawPeer& from, const RawPeer& to, const LineQuality& quality)
      : m_from(from), m_to(to), m_quality(quality) {}

  // Takes what is there now, at most so many bytes. False at the end.
  bool take(std::size_t most) {
    Bytes bytes(most);
    const ssize_t size = recv(m_from.fd(), bytes.data(), most, MSG_DONTWAIT);
    if (size <= 0) return size < 0;
    bytes.resize(static_cast<std::size_t>(size));
    m_free = std::max(m_free, Clock::now() + m_quality.delay);
    if (isLost(bytes.size())) m_free += 2 * m_quality.delay;
    m_onTheWay.push_back({m_free, std::move(bytes)});
    return true;
  }
  // Hands over what has arrived by now. False at the end.
  bool arrive() {
    for (; !m_onTheWay.empty() && m_onTheWay.front().due <= Clock::now(); m_onTheWay.pop_front()) {
      const Bytes& bytes = m_onTheWay.front().bytes;
      if (m_quality.onArrival) m_quality.onArrival(bytes);
      if (!m_to.send(bytes)) return false;
    }
    return true;
  }

 private:
  struct Piece {
    Clock::time_point due;
    Bytes bytes;
  };
  bool isLost(std::size_t size) {
    return std::bernoulli_distribution(
        std::min(1.0, m_quality.losses * static_cast<double>(size) / kPacket))(m_random);
  }

  const RawPeer& m_from;
  const RawPeer& m_to;
  const LineQuality m_quality;
  std::deque<Piece> m_onTheWay;
  Clock::time_point m_free;  // nothing overtakes
  std::mt19937 m_random{1};
};

}  // namespace

SlowLine::SlowLine(const std::string& clientSide, std::string serverSide, LineQuality quality)
    : m_serverSide(std::move(serverSide)),
      m_quality(std::move(quality)),
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
  Way toServer(client, server, m_quality);
  Way toClient(server, client, {.delay = m_quality.delay});
  const auto perTick =
      static_cast<std::size_t>(static_cast<double>(m_quality.bytesPerSecond) / kTicksPerSecond);
  auto tick = Clock::now();
  while (!m_stopping) {
    if (!m_cut) {
      if (!toServer.arrive() || !toClient.arrive()) return;
      if (!toServer.take(perTick) || !toClient.take(kAll)) return;
    }
    // What a busy machine has missed is not made up for.
    tick = std::max(tick + kTick, Clock::now());
    std::this_thread::sleep_until(tick);
  }
}

}  // namespace lumsar::test
