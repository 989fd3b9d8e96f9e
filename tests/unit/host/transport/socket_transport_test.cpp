// SocketTransport: what it sends first.
#include "transport/socket_transport.h"

#include <gtest/gtest.h>

#include <thread>

#include "protocol/camera_record.h"
#include "support/messages.h"
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

// A transport with its loop, which runs in the background.
class Running {
 public:
  explicit Running(const std::string& address, const std::string& access = {})
      : m_transport(m_loop, queue, *m_inbox, address, access) {
    m_inbox->listen(m_greeter);
    queue.setWake([this] { m_transport.wake(); });
    m_transport.start();
    m_thread = std::thread([this] { m_loop.run(); });
  }
  ~Running() {
    m_loop.stop();
    m_thread.join();
    m_transport.stop();
    m_inbox->end();
  }
  Running(const Running&) = delete;
  Running& operator=(const Running&) = delete;

  SendQueue queue;

 private:
  asio::io_context m_loop;
  std::shared_ptr<Inbox> m_inbox = std::make_shared<Inbox>(m_loop.get_executor());
  Greeter m_greeter{queue};
  SocketTransport m_transport;
  std::thread m_thread;
};

// What the peer that listens at `listener` gets from a transport with this access line.
Bytes sentTo(const RawListener& listener, const std::string& address, const std::string& access,
             std::size_t size) {
  const Running transport(address, access);
  return listener.accept().read(size);
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

// Frames larger than the socket's buffer, for a peer that reads now and then, and controls between.
TEST(SocketTransport, KeepsTheOrderBeforeASlowPeerAndDropsFramesOnly) {
  const TemporaryDirectory folder;
  const RawListener listener(folder / "x.sock");
  Running transport("unix:" + (folder / "x.sock"));
  const RawPeer peer = listener.accept();
  ASSERT_EQ(peer.read(36), hello(7));
  constexpr std::uint16_t kControls = 40;
  std::thread sender([&] {
    for (std::uint16_t i = 0; i < kControls; ++i) {
      for (std::uint8_t k = 0; k < 5; ++k) {
        const Bytes body(300'000, k);
        transport.queue.push(message(MSG_DATA, record(CameraDataKind::Frame, i, body)));
      }
      transport.queue.push(hello(i));
    }
  });
  MessageAssembler assembler;
  std::uint16_t controls = 0;
  std::size_t frames = 0;
  const auto deadline = std::chrono::steady_clock::now() + kTimeout;
  while (controls < kControls) {
    ASSERT_LT(std::chrono::steady_clock::now(), deadline);
    assembler.append(peer.read(50'000, std::chrono::milliseconds(10)));
    for (auto next = assembler.next(); !next.empty(); next = assembler.next()) {
      if (readHeader(next.data()).type == MSG_DATA) {
        ++frames;
        // A frame never comes later than the control message that followed it.
        const auto record = protocol::readRecord(next, CameraDataKind::Frame);
        ASSERT_TRUE(record);
        ASSERT_GE(record->camera, controls);
        ASSERT_EQ(next.back(), next[next.size() - 1000]);
      } else {
        ASSERT_EQ(Bytes(next.begin(), next.end()), hello(controls++));
      }
    }
    ASSERT_EQ(assembler.fault(), MessageAssembler::Fault::None);
  }
  sender.join();
  const SendQueue::Counters counters = transport.queue.counters();
  EXPECT_EQ(counters.frames, frames + counters.framesDropped);
  EXPECT_EQ(counters.messagesRefused, 0U);
}

}  // namespace
}  // namespace lumsar::test
