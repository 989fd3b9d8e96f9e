// SocketTransport: what it sends first.
#include "transport/socket_transport.h"

#include <gtest/gtest.h>

#include <thread>

#include "support/raw_peer.h"
#include "support/temporary_directory.h"

namespace lumsar::test {
namespace {

using namespace host;

// Greets as soon as the channel is open.
class Greeter final : public ChannelListener {
 public:
  explicit Greeter(SendQueue& queue) : m_queue(queue) {}
  void channelOpened() override {
    m_queue.open();
    m_queue.push(hello(7));
  }
  void channelReceived(std::span<const unsigned char> /*bytes*/) override {}
  void channelClosed(const std::string& /*why*/) override {}
  void channelUnavailable(const std::string& /*why*/) override {}
  void channelRefused(const std::string& /*why*/) override {}

 private:
  SendQueue& m_queue;
};

// What the peer that listens at `listener` gets from a transport with this access line.
Bytes sentTo(const RawListener& listener, const std::string& address, const std::string& access,
             std::size_t size) {
  asio::io_context loop;
  SendQueue queue;
  const auto inbox = std::make_shared<Inbox>(loop.get_executor());
  Greeter greeter(queue);
  inbox->listen(greeter);
  SocketTransport transport(loop, queue, *inbox, address, access);
  queue.setWake([&] { transport.wake(); });
  transport.start();
  std::thread running([&] { loop.run(); });
  const RawPeer peer = listener.accept();
  Bytes bytes = peer.read(size);
  loop.stop();
  running.join();
  transport.stop();
  inbox->end();
  return bytes;
}

TEST(SocketTransport, SendsTheAccessTokenFirstAndOnlyOverTcp) {
  const std::string access = "LUMSAR-ACCESS 0123456789abcdef\n";
  const RawListener tcp("tcp:0");
  const Bytes expected = join({bytesOf(access), hello(7)});
  EXPECT_EQ(sentTo(tcp, "tcp:127.0.0.1:" + std::to_string(tcp.port()), access, expected.size()),
            expected);
  EXPECT_EQ(sentTo(tcp, "tcp:127.0.0.1:" + std::to_string(tcp.port()), "", 36), hello(7));
  const TemporaryDirectory folder;
  const RawListener local(folder / "x.sock");
  EXPECT_EQ(sentTo(local, "unix:" + (folder / "x.sock"), access, 36), hello(7));
}

}  // namespace
}  // namespace lumsar::test
