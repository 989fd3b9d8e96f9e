// SlowLink: a socket in front of a SPICE server's, through which bytes go to the server no faster
// than a thin line carries them. Runs on a thread of its own.
#ifndef LUMSAR_TESTS_INTEGRATION_VM_SUPPORT_SLOW_LINK_H
#define LUMSAR_TESTS_INTEGRATION_VM_SUPPORT_SLOW_LINK_H

#include <asio/awaitable.hpp>
#include <asio/io_context.hpp>
#include <asio/local/stream_protocol.hpp>
#include <memory>
#include <thread>

#include "integration/vm/support/child.h"

namespace lumsar::vmtest {

class SlowLink {
 public:
  SlowLink(const Path& socket, Path server, std::size_t bytesPerSecond);
  SlowLink(const SlowLink&) = delete;
  SlowLink& operator=(const SlowLink&) = delete;
  ~SlowLink();

 private:
  using Socket = asio::local::stream_protocol::socket;
  struct Pair {
    Socket client;
    Socket server;
  };

  asio::awaitable<void> accept();
  static asio::awaitable<void> carry(std::shared_ptr<Pair> pair, bool toServer,
                                     std::size_t bytesPerSecond);

  asio::io_context m_loop;
  asio::local::stream_protocol::acceptor m_acceptor;
  const Path m_server;
  const std::size_t m_bytesPerSecond;
  std::thread m_thread;  // last: it uses all of the above
};

}  // namespace lumsar::vmtest

#endif
