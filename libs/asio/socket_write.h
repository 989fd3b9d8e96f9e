// Ways to write that Asio does not have.
#pragma once

#include <sys/socket.h>

#include <asio/write.hpp>
#include <limits>
#include <span>
#include <system_error>
#include <utility>

namespace lumsar {

// What the socket takes at once, on any thread. An error counts as nothing: the loop meets it, too.
template <class Socket>
std::size_t sendNow(Socket& socket, std::span<const unsigned char> bytes) {
  const ssize_t sent =
      ::send(socket.native_handle(), bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
  return sent < 0 ? 0 : static_cast<std::size_t>(sent);
}

// async_write in pieces as large as the socket takes. Asio's own stops at 64 KB each time, which
// costs a frame of 1 MB sixteen calls and as many waits.
template <class Socket, class Buffers, class Handler>
void writeWhole(Socket& socket, const Buffers& buffers, Handler&& handler) {
  const auto untilAll = [](const std::error_code& error, std::size_t /*written*/) {
    return error ? 0 : std::numeric_limits<std::size_t>::max();
  };
  asio::async_write(socket, buffers, untilAll, std::forward<Handler>(handler));
}

}  // namespace lumsar
