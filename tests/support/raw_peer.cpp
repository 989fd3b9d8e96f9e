#include "support/raw_peer.h"

#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <system_error>

#include "base/net/address.h"
#include "base/system/files.h"

namespace lumsar::test {
namespace {

// A text without a kind is a path.
base::SocketAddress addressOf(const std::string& text) {
  return base::toSockaddr(base::parseAddress(
      text.starts_with("tcp:") || text.starts_with("unix:") ? text : "unix:" + text));
}

UniqueFd newSocket(const base::SocketAddress& address) {
  return UniqueFd(socket(address.storage.ss_family, SOCK_STREAM | SOCK_CLOEXEC, 0));
}

bool readable(int fd, milliseconds limit) {
  pollfd entry{fd, POLLIN, 0};
  return fd >= 0 && poll(&entry, 1, static_cast<int>(limit.count())) > 0;
}

}  // namespace

RawPeer::RawPeer(const std::string& text) {
  const base::SocketAddress address = addressOf(text);
  eventually([&] {
    m_socket = newSocket(address);
    if (connect(fd(), address.get(), address.size) != 0) close();
    return connected();
  });
}

bool RawPeer::send(View bytes) const {
  return base::sendAll(fd(), bytes);
}

Bytes RawPeer::read(std::size_t size, milliseconds limit) const {
  Bytes bytes(size);
  std::size_t have = 0;
  while (have < size && readable(fd(), limit)) {
    const ssize_t got = recv(fd(), bytes.data() + have, size - have, 0);
    if (got <= 0) break;
    have += static_cast<std::size_t>(got);
  }
  bytes.resize(have);
  return bytes;
}

Bytes RawPeer::receive(milliseconds limit) const {
  const Bytes header = read(kHeaderSize, limit);
  if (header.size() < kHeaderSize) return {};
  return join({header, read(headerOf(header).length, limit)});
}

std::optional<Bytes> RawPeer::receiveRecord(CameraDataKind kind, std::uint32_t camera) const {
  for (Bytes message = receive(); !message.empty(); message = receive()) {
    View rest = View(message).subspan(kHeaderSize);
    if (kindOf(message) != kind || take<CameraDataHeader>(rest)->camera != camera) continue;
    return Bytes(rest.begin(), rest.end());
  }
  return std::nullopt;
}

bool RawPeer::ended() const {
  std::array<char, 65536> ignored;
  while (readable(fd(), kTimeout)) {
    if (recv(fd(), ignored.data(), ignored.size(), 0) <= 0) return true;
  }
  return false;
}

bool RawPeer::handshake(std::uint16_t token) const {
  send(hello(token));
  Bytes answer = receive();
  while (kindOf(answer) == CameraDataKind::Received) answer = receive();  // of earlier cameras
  return answer.size() == sizeof(HelloMessage) &&
         std::ranges::equal(View(answer).subspan(kHeaderSize, sizeof token), bytesOf(token));
}

RawListener::RawListener(const std::string& text) {
  const base::SocketAddress address = addressOf(text);
  if (address.storage.ss_family == AF_UNIX) unlink(text.c_str());
  m_socket = newSocket(address);
  if (bind(fd(), address.get(), address.size) != 0 || listen(fd(), 8) != 0) {
    throw std::system_error(errno, std::generic_category(), text);
  }
}

int RawListener::port() const {
  sockaddr_in address{};
  socklen_t size = sizeof address;
  getsockname(fd(), reinterpret_cast<sockaddr*>(&address), &size);
  return ntohs(address.sin_port);
}

RawPeer RawListener::accept(milliseconds limit) const {
  if (!readable(fd(), limit)) return {};
  return RawPeer(UniqueFd(accept4(fd(), nullptr, nullptr, SOCK_CLOEXEC)));
}

RawPeer RawListener::welcome(std::uint32_t code) {
  RawPeer peer = accept();
  request = peer.receive();
  peer.send(message(IPC_MSG_CONNECT_ACCEPT, View(), code));
  return peer;
}

}  // namespace lumsar::test
