#include "chain/relay.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <array>

#include "lumsar/assembler.h"

namespace lumsar::test {
namespace {

// How soon the end of the relay is noticed.
constexpr milliseconds kLook{50};
constexpr std::size_t kReadSize = 65536;

RawPeer connectNow(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  UniqueFd socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    return {};
  }
  return RawPeer(std::move(socket));
}

// What has come, at most kReadSize; false at the end.
bool receive(const RawPeer& from, MessageAssembler& into) {
  const ssize_t size = recv(from.fd(), into.prepare(kReadSize).data(), kReadSize, MSG_DONTWAIT);
  if (size > 0) into.commit(static_cast<std::size_t>(size));
  return size > 0 || (size < 0 && (errno == EAGAIN || errno == EINTR));
}

}  // namespace

Relay::Relay(const std::string& clientSide, std::string serverSide, Observed observed, Pass pass)
    : m_serverSide(std::move(serverSide)),
      m_observed(observed),
      m_pass(std::move(pass)),
      m_listener(clientSide),
      m_thread([this] { accept(); }) {}

Relay::~Relay() {
  m_stopping = true;
  m_thread.join();
}

void Relay::accept() {
  while (!m_stopping) {
    RawPeer client = m_listener.accept(kLook);
    if (!client.connected()) continue;
    m_connections.emplace_back([this, client = std::move(client)] { carry(client); });
  }
}

void Relay::carry(const RawPeer& client) const {
  const RawPeer server = connectNow(m_serverSide);
  const bool toServer = m_observed == Observed::ToServer;
  const RawPeer& source = toServer ? client : server;
  const RawPeer& target = toServer ? server : client;
  MessageAssembler observed;
  MessageAssembler back;
  const auto passMessages = [&] {
    for (View message = observed.next(); !message.empty(); message = observed.next()) {
      if (!m_pass(message, target)) return false;
    }
    return observed.fault() == MessageAssembler::Fault::None;
  };
  const auto passBack = [&] {
    for (View message = back.next(); !message.empty(); message = back.next()) {
      if (!source.send(message)) return false;
    }
    return back.fault() == MessageAssembler::Fault::None;
  };
  bool open = server.connected();
  while (open && !m_stopping) {
    std::array<pollfd, 2> ends{pollfd{source.fd(), POLLIN, 0}, pollfd{target.fd(), POLLIN, 0}};
    poll(ends.data(), ends.size(), static_cast<int>(kLook.count()));
    if (ends[0].revents != 0) open = receive(source, observed);
    if (ends[1].revents != 0) open = receive(target, back) && open;
    // What came before the end is still passed on.
    open = passMessages() && passBack() && open;
  }
}

}  // namespace lumsar::test
