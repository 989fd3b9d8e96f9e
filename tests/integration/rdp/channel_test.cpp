// RdpChannel by itself, in a client whose server has left the channel out.
#include "rdp/rdp_channel.h"

#include <freerdp/freerdp.h>
#include <gtest/gtest.h>

#include <asio/io_context.hpp>

namespace lumsar::host {
namespace {

struct Listener final : ChannelListener {
  void channelOpened() override { log += "opened;"; }
  void channelReceived(std::span<const unsigned char> /*bytes*/) override { log += "received;"; }
  void channelClosed(const std::string& /*why*/) override { log += "closed;"; }
  void channelUnavailable(const std::string& why) override { log += why + ";"; }
  void channelRefused(const std::string& /*why*/) override { log += "refused;"; }
  std::string log;
};

// What the channel has told the library to call.
struct Registered {
  void* channel = nullptr;
  PCHANNEL_INIT_EVENT_EX_FN initEvent = nullptr;
};

UINT VCAPITYPE takeRegistration(void* channel, void* /*context*/, void* handle,
                                PCHANNEL_DEF definition, INT count, ULONG /*version*/,
                                PCHANNEL_INIT_EVENT_EX_FN initEvent) {
  EXPECT_EQ(count, 1);
  EXPECT_STREQ(definition->name, "lumsar");
  *static_cast<Registered*>(handle) = {channel, initEvent};
  return CHANNEL_RC_OK;
}

TEST(RdpChannelTest, ChannelThatTheServerDoesNotOffer) {
  freerdp* client = freerdp_new();
  ASSERT_EQ(freerdp_context_new(client), TRUE);
  asio::io_context loop;
  SendQueue queue;
  Listener listener;
  const auto inbox = std::make_shared<Inbox>(loop.get_executor());
  inbox->listen(listener);
  RdpChannel channel(queue, *inbox);
  Registered registered;
  CHANNEL_ENTRY_POINTS_FREERDP_EX entry{};
  entry.context = client->context;
  entry.pVirtualChannelInitEx = takeRegistration;  // the others stay null: none may be called
  ASSERT_TRUE(channel.enter(entry, &registered));

  registered.initEvent(registered.channel, &registered, CHANNEL_EVENT_CONNECTED, nullptr, 0);
  channel.drain();
  registered.initEvent(registered.channel, &registered, CHANNEL_EVENT_DISCONNECTED, nullptr, 0);
  loop.run();
  EXPECT_EQ(listener.log,
            "the server does not offer the channel \"lumsar\"; its administrator has to allow it;");

  freerdp_context_free(client);
  freerdp_free(client);
}

}  // namespace
}  // namespace lumsar::host
