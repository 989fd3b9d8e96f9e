// The least that a transport of framed messages has to do: one call that sends header and body, one
// that reads the header, one that reads the body into a buffer.
#pragma once

#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <system_error>
#include <utility>
#include <vector>

#include "base/system/fd.h"
#include "lumsar/message.h"

namespace lumsar::bench {

inline std::vector<unsigned char> messageOf(std::size_t payload, std::uint32_t type) {
  RedirMsgHeader header;
  header.type = type;
  header.length = static_cast<std::uint32_t>(payload);
  std::vector<unsigned char> message(kHeaderSize + payload, 0x5A);
  std::memcpy(message.data(), &header, sizeof header);
  return message;
}

class RawStream {
 public:
  explicit RawStream(base::UniqueFd socket) : m_socket(std::move(socket)) {}

  void send(const std::vector<unsigned char>& message) const {
    const unsigned char* place = message.data();
    for (std::size_t left = message.size(); left > 0;) {
      const auto sent = check(::send(m_socket.get(), place, left, MSG_NOSIGNAL));
      place += sent;
      left -= sent;
    }
  }
  // False at the end of the stream.
  bool receive(std::vector<unsigned char>& into) const {
    into.resize(std::max(into.size(), kHeaderSize));
    if (!readWhole(into.data(), kHeaderSize)) return false;
    const std::size_t payload = readHeader(into.data()).length;
    if (into.size() < kHeaderSize + payload) into.resize(kHeaderSize + payload);
    return payload == 0 || readWhole(into.data() + kHeaderSize, payload);
  }
  int fd() const { return m_socket.get(); }

 private:
  static std::size_t check(ssize_t result) {
    if (result < 0) throw std::system_error(errno, std::generic_category(), "socket");
    return static_cast<std::size_t>(result);
  }
  bool readWhole(unsigned char* place, std::size_t size) const {
    return check(::recv(m_socket.get(), place, size, MSG_WAITALL)) == size;
  }

  base::UniqueFd m_socket;
};

inline std::pair<RawStream, RawStream> rawStreams() {
  int ends[2] = {-1, -1};
  if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) {
    throw std::system_error(errno, std::generic_category(), "socketpair");
  }
  return {RawStream(base::UniqueFd(ends[0])), RawStream(base::UniqueFd(ends[1]))};
}

}  // namespace lumsar::bench
