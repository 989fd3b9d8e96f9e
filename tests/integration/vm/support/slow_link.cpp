// A thin line to the SPICE server: see slow_link.h.
#include "integration/vm/support/slow_link.h"

#include <array>
#include <asio/co_spawn.hpp>
#include <asio/detached.hpp>
#include <asio/steady_timer.hpp>
#include <asio/use_awaitable.hpp>
#include <asio/write.hpp>
#include <limits>

namespace lumsar::vmtest {

namespace {

using asio::use_awaitable;
using std::chrono::microseconds;

constexpr std::size_t kAtOnce = 16U << 10U;

}  // namespace

SlowLink::SlowLink(const Path& socket, Path server, std::size_t bytesPerSecond)
    : m_acceptor(m_loop, asio::local::stream_protocol::endpoint(socket.string())),
      m_server(std::move(server)),
      m_bytesPerSecond(bytesPerSecond) {
  asio::co_spawn(m_loop, accept(), asio::detached);
  m_thread = std::thread([this] { m_loop.run(); });
}

SlowLink::~SlowLink() {
  m_loop.stop();
  m_thread.join();
}

asio::awaitable<void> SlowLink::accept() {
  while (true) {
    auto pair = std::make_shared<Pair>(Pair{Socket(m_loop), Socket(m_loop)});
    co_await m_acceptor.async_accept(pair->client, use_awaitable);
    // What the line itself holds is little, as on a real one.
    pair->client.set_option(asio::socket_base::receive_buffer_size(kAtOnce));
    co_await pair->server.async_connect(m_server.string(), use_awaitable);
    asio::co_spawn(m_loop, carry(pair, true, m_bytesPerSecond), asio::detached);
    asio::co_spawn(m_loop, carry(pair, false, std::numeric_limits<int>::max()), asio::detached);
  }
}

// Ends, and the pair with it, when either side closes.
asio::awaitable<void> SlowLink::carry(std::shared_ptr<Pair> pair, bool toServer,
                                      std::size_t bytesPerSecond) {
  Socket& from = toServer ? pair->client : pair->server;
  Socket& to = toServer ? pair->server : pair->client;
  asio::steady_timer pace(co_await asio::this_coro::executor);
  std::array<char, kAtOnce> bytes;
  try {
    while (true) {
      const std::size_t size = co_await from.async_read_some(asio::buffer(bytes), use_awaitable);
      co_await asio::async_write(to, asio::buffer(bytes, size), use_awaitable);
      pace.expires_after(microseconds(size * 1'000'000 / bytesPerSecond));
      co_await pace.async_wait(use_awaitable);
    }
  } catch (const std::system_error&) {
    from.close();
    to.close();
  }
}

}  // namespace lumsar::vmtest
