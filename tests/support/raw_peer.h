// Plain stream sockets that do exactly what a test says, right or wrong.
#pragma once

#include <optional>
#include <string>

#include "base/system/fd.h"
#include "support/eventually.h"
#include "support/messages.h"

namespace lumsar::test {

using base::UniqueFd;

// A connection. Not connected after close() and when nobody listened.
class RawPeer {
 public:
  RawPeer() = default;
  explicit RawPeer(UniqueFd socket) : m_socket(std::move(socket)) {}
  // "unix:PATH", PATH, or "tcp:127.0.0.1:PORT"; waits until somebody listens.
  explicit RawPeer(const std::string& address);

  bool connected() const { return static_cast<bool>(m_socket); }
  int fd() const { return m_socket.get(); }
  void close() { m_socket.reset(); }

  // False when the peer has closed.
  bool send(View bytes) const;
  // Up to `size` bytes; fewer at the end of the stream or when nothing comes for `limit`.
  Bytes read(std::size_t size, milliseconds limit = kTimeout) const;
  // The next message; empty when none comes within `limit` or at the end of the stream.
  Bytes receive(milliseconds limit = kTimeout) const;
  // Receives until a record of this kind comes, and returns its body.
  std::optional<Bytes> receiveRecord(CameraDataKind kind, std::uint32_t camera) const;
  // Whether the peer closes, whatever it still sends.
  bool ended() const;
  // A host's handshake with a guest agent.
  bool handshake(std::uint16_t token = 1) const;

 private:
  UniqueFd m_socket;
};

class RawListener {
 public:
  // At "tcp:PORT" on the loopback interface, any free one for 0, or at a path, in place of a socket
  // that is there already.
  explicit RawListener(const std::string& address);

  int fd() const { return m_socket.get(); }
  int port() const;
  void close() { m_socket.reset(); }
  // Not connected when nobody comes within `limit`.
  RawPeer accept(milliseconds limit = kTimeout) const;
  // Accepts as a camera service does: reads the request to connect and answers with `code`.
  RawPeer welcome(std::uint32_t code = 0);
  Bytes request;  // which welcome() has read

 private:
  UniqueFd m_socket;
};

}  // namespace lumsar::test
