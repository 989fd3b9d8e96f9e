// RdpTransport in this process, where its limits can be short.
#include "rdp/rdp_transport.h"

#include "integration/rdp/rig.h"

namespace lumsar::test {
namespace {

struct Listener final : host::ChannelListener {
  void channelOpened() override {}
  void channelReceived(std::span<const unsigned char> /*bytes*/) override {}
  void channelClosed(const std::string& /*why*/) override {}
  void channelUnavailable(const std::string& why) override { trouble = why; }
  void channelRefused(const std::string& why) override { trouble = why; }
  std::string trouble;  // the latest
};

class RdpTransportTest : public Rig {};

TEST_F(RdpTransportTest, ServerThatDoesNotAnswerIsCalledSo) {
  const RawListener listener(path("rdp"));
  host::RdpTarget target;
  target.host = path("rdp");
  target.answerLimit = seconds(1);
  asio::io_context loop;
  host::SendQueue queue;
  Listener said;
  const auto inbox = std::make_shared<host::Inbox>(loop.get_executor());
  inbox->listen(said);
  host::RdpTransport transport(loop, queue, *inbox, target);
  transport.start();
  eventually([&] {
    loop.run_for(milliseconds(50));
    return !said.trouble.empty();
  });
  transport.stop();
  EXPECT_EQ(said.trouble, path("rdp") + " has not answered within 1 s");
}

}  // namespace
}  // namespace lumsar::test
