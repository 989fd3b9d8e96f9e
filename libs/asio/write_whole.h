// writeWhole: async_write in pieces as large as the socket takes. Asio's own stops at 64 KB each
// time, which costs a frame of 1 MB sixteen calls and as many waits.
#pragma once

#include <asio/write.hpp>
#include <limits>
#include <system_error>
#include <utility>

namespace lumsar {

template <class Socket, class Buffers, class Handler>
void writeWhole(Socket& socket, const Buffers& buffers, Handler&& handler) {
  const auto untilAll = [](const std::error_code& error, std::size_t /*written*/) {
    return error ? 0 : std::numeric_limits<std::size_t>::max();
  };
  asio::async_write(socket, buffers, untilAll, std::forward<Handler>(handler));
}

}  // namespace lumsar
