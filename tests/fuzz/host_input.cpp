// What a host gets from its VM and from the plug-in: the same messages come out of the Inbox and
// the Deframer however the bytes were cut, and the FragmentJoiner loses and adds nothing.
#include <asio/io_context.hpp>

#include "fuzz/complete_messages.h"
#include "fuzz/input.h"
#include "session/deframer.h"
#include "transport/fragment_joiner.h"
#include "transport/inbox.h"

namespace {

using namespace lumsar;
using fuzz::Input;
using fuzz::require;

class Session final : public host::ChannelListener {
 public:
  void channelOpened() override { m_deframer.reset(); }
  void channelReceived(fuzz::Bytes bytes) override {
    m_deframer.append(bytes);
    for (auto next = m_deframer.next(); !next.empty(); next = m_deframer.next()) {
      messages.emplace_back(next.begin(), next.end());
    }
    dropped += m_deframer.takeDropped();
  }
  void channelClosed(const std::string& /*why*/) override {}
  void channelUnavailable(const std::string& /*why*/) override {}
  void channelRefused(const std::string& /*why*/) override {}

  fuzz::Messages messages;
  std::size_t dropped = 0;

 private:
  host::Deframer m_deframer;
};

Session receive(fuzz::Bytes stream, std::size_t piece, bool atOnce) {
  asio::io_context io;
  Session session;
  const auto inbox = std::make_shared<host::Inbox>(io.get_executor());
  inbox->listen(session);
  inbox->opened();
  while (!stream.empty()) {
    const auto next = stream.first(std::min(piece, stream.size()));
    stream = stream.subspan(next.size());
    inbox->received(next);
    if (atOnce) io.poll();
    io.restart();
  }
  inbox->closed("end");
  io.run();
  inbox->end();
  return session;
}

void fromVm(Input& input) {
  const std::size_t piece = 1U + input.byte();
  const bool atOnce = input.byte() % 2 == 0;
  const auto stream = input.rest();
  const Session cut = receive(stream, piece, atOnce);
  Session whole;
  whole.channelReceived(stream);
  require(cut.messages == whole.messages, "the same messages however they are cut");
  for (const auto& message : whole.messages) {
    require(message.size() == kHeaderSize + readHeader(message.data()).length, "complete ones");
  }
}

void fromPlugin(Input& input) {
  host::FragmentJoiner joiner;
  std::vector<unsigned char> given;
  std::vector<unsigned char> joined;
  while (!input.empty()) {
    const auto fragment = input.take(1U + input.byte());
    given.insert(given.end(), fragment.begin(), fragment.end());
    const auto message = joiner.add(fragment);
    if (!message) continue;
    require(!host::FragmentJoiner::isValid(*message) ||
                message->size() >= kHeaderSize + readHeader(message->data()).length,
            "a message is complete");
    joined.insert(joined.end(), message->begin(), message->end());
  }
  require(joined.size() <= given.size() && std::equal(joined.begin(), joined.end(), given.begin()),
          "all bytes in their order");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  Input input(data, size);
  if (input.byte() % 2 == 0) {
    fromVm(input);
  } else {
    fromPlugin(input);
  }
  return 0;
}
