#include "feeds/transport_feed.h"

#include "lumsar/assembler.h"
#include "support/messages.h"

namespace lumsar::bench {
namespace {

class Listener final : public host::ChannelListener {
 public:
  explicit Listener(Flow& flow) : m_flow(flow) {}

  bool isOpen() const { return m_open; }

  void channelOpened() override { m_open = true; }
  void channelReceived(std::span<const unsigned char> bytes) override {
    m_assembler.append(bytes);
    while (true) {
      const test::View message = m_assembler.next();
      if (message.empty()) return;
      noteReceived(message, m_flow);
    }
  }
  void channelClosed(const std::string& /*why*/) override { m_open = false; }
  void channelUnavailable(const std::string& /*why*/) override {}
  void channelRefused(const std::string& /*why*/) override {}

 private:
  Flow& m_flow;
  bool m_open = false;
  MessageAssembler m_assembler;
};

}  // namespace

void feedTransport(const MakeTransport& make, Feed feed, Flow& flow) {
  asio::io_context loop;
  const auto busy = asio::make_work_guard(loop);
  host::SendQueue queue;
  Listener listener(flow);
  const auto inbox = std::make_shared<host::Inbox>(loop.get_executor());
  inbox->listen(listener);
  const auto transport = make(loop, queue, *inbox);
  queue.setWake([&] { transport->wake(); });
  transport->start();
  while (!listener.isOpen()) loop.run_one();
  queue.open();
  const auto frame = test::frame(1, 0, test::blankJpeg(feed.frame));
  for (std::uint64_t pushed = 0;;) {
    loop.run_for(std::chrono::microseconds(100));
    for (; pushed < flow.received + feed.ahead; ++pushed) {
      for (std::size_t done = 0; done < frame.size(); done += feed.fragment) {
        queue.push(test::View(frame).subspan(done, std::min(feed.fragment, frame.size() - done)));
      }
    }
  }
}

}  // namespace lumsar::bench
