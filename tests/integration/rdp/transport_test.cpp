// RdpTransport in this process, where its limits can be short.
#include "rdp/rdp_transport.h"

#include "integration/rdp/rig.h"
#include "integration/rdp/unix_socket.h"

namespace lumsar_test {
namespace {

struct Listener final : lumsar::host::ChannelListener {
  void channelOpened() override {}
  void channelReceived(std::span<const unsigned char> /*bytes*/) override {}
  void channelClosed(const std::string& /*why*/) override {}
  void channelUnavailable(const std::string& why) override { trouble = why; }
  void channelRefused(const std::string& why) override { trouble = why; }
  std::string trouble;  // the latest
};

class RdpTransportTest : public Rig {};

TEST_F(RdpTransportTest, ServerThatDoesNotAnswerIsCalledSo) {
  const int listener = listenAt(path("rdp"));
  lumsar::host::RdpTarget target;
  target.host = path("rdp");
  target.answerLimit = seconds(1);
  asio::io_context loop;
  lumsar::host::SendQueue queue;
  Listener said;
  const auto inbox = std::make_shared<lumsar::host::Inbox>(loop.get_executor());
  inbox->listen(said);
  lumsar::host::RdpTransport transport(loop, queue, *inbox, target);
  transport.start();
  const auto end = std::chrono::steady_clock::now() + seconds(5);
  while (said.trouble.empty() && std::chrono::steady_clock::now() < end) {
    loop.run_for(milliseconds(50));
  }
  transport.stop();
  close(listener);
  EXPECT_EQ(said.trouble, path("rdp") + " has not answered within 1 s");
}

}  // namespace
}  // namespace lumsar_test
