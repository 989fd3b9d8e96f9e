// Plain sockets that do exactly what a test says, right or wrong: a service that misbehaves
// (RawService) and a stranger at the service's door (RawPeer). Test's threads only.
#ifndef LUMSAR_TESTS_UNIT_IPC_RAW_PEER_H
#define LUMSAR_TESTS_UNIT_IPC_RAW_PEER_H

#include <poll.h>
#include <sys/socket.h>

#include <span>
#include <stdexcept>

#include "base/address.h"
#include "base/fd.h"
#include "ipc/channel_path.h"
#include "unit/ipc/support.h"

namespace lumsar::test {

class RawPeer {
 public:
  explicit RawPeer(base::UniqueFd socket) : m_socket(std::move(socket)) {}
  static RawPeer connect(const std::string& path) {
    base::UniqueFd socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const base::SocketAddress address = base::toSockaddr({path, {}, 0});
    if (::connect(socket.get(), address.get(), address.size) != 0) {
      throw std::runtime_error(std::strerror(errno));
    }
    return RawPeer(std::move(socket));
  }

  // False when the other side is gone.
  bool write(std::span<const unsigned char> bytes) const {
    while (!bytes.empty()) {
      const ssize_t sent = ::send(m_socket.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
      if (sent <= 0) return false;
      bytes = bytes.subspan(static_cast<std::size_t>(sent));
    }
    return true;
  }
  // Up to `size` bytes; less at the end of the stream or when nothing comes for `limit`.
  Bytes read(std::size_t size, milliseconds limit = kPatience) const {
    Bytes bytes(size);
    std::size_t have = 0;
    while (have < size) {
      pollfd ready = {m_socket.get(), POLLIN, 0};
      if (::poll(&ready, 1, static_cast<int>(limit.count())) <= 0) break;
      const ssize_t got = ::recv(m_socket.get(), bytes.data() + have, size - have, 0);
      if (got <= 0) break;
      have += static_cast<std::size_t>(got);
    }
    bytes.resize(have);
    return bytes;
  }
  // One whole message; empty at the end of the stream.
  Bytes readMessage(milliseconds limit = kPatience) const {
    Bytes head = read(kHeaderSize, limit);
    if (head.size() < kHeaderSize) return {};
    const Bytes payload = read(readHeader(head.data()).length, limit);
    head.insert(head.end(), payload.begin(), payload.end());
    return head;
  }
  // Nothing more can be read: the other side closed the connection.
  bool atEnd() const {
    for (;;) {
      pollfd ready = {m_socket.get(), POLLIN, 0};
      if (::poll(&ready, 1, static_cast<int>(kPatience.count())) <= 0) return false;
      char bytes[4096];
      if (::recv(m_socket.get(), bytes, sizeof bytes, 0) <= 0) return true;
    }
  }
  void close() { m_socket = base::UniqueFd(); }
  int fd() const { return m_socket.get(); }

 private:
  base::UniqueFd m_socket;
};

class RawService {
 public:
  explicit RawService(const std::string& path)
      : m_socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    const base::SocketAddress address = base::toSockaddr({path, {}, 0});
    if (::bind(m_socket.get(), address.get(), address.size) != 0 ||
        ::listen(m_socket.get(), 8) != 0) {
      throw std::runtime_error(std::strerror(errno));
    }
  }
  RawPeer accept() const {
    return RawPeer(base::UniqueFd(::accept4(m_socket.get(), nullptr, nullptr, SOCK_CLOEXEC)));
  }
  // Accepts, reads the introduction and answers it.
  RawPeer welcome(int code = 0) const {
    RawPeer peer = accept();
    introduction = peer.readMessage();
    Bytes answer = message(IPC_MSG_CONNECT_ACCEPT);
    answer[12] = static_cast<unsigned char>(code);
    peer.write(answer);
    return peer;
  }
  int fd() const { return m_socket.get(); }
  mutable Bytes introduction;

 private:
  base::UniqueFd m_socket;
};

}  // namespace lumsar::test

#endif
