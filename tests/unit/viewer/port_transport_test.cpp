// PortTransport: what it makes of a port's signals, without ever waiting. There is no server: the
// test gives the signals.
#include "port/port_transport.h"

#include <gtest/gtest.h>

#include <asio/io_context.hpp>
#include <vector>

#include "support/eventually.h"

namespace lumsar::test {
namespace {

using namespace host;
using viewer::PortTransport;

// Notes what arrives.
class Listener final : public ChannelListener {
 public:
  void channelOpened() override { told.emplace_back("opened"); }
  void channelReceived(std::span<const unsigned char> bytes) override {
    told.push_back("received " + std::string(bytes.begin(), bytes.end()));
  }
  void channelClosed(const std::string& why) override { told.push_back("closed: " + why); }
  void channelUnavailable(const std::string& why) override { told.push_back("none: " + why); }
  void channelRefused(const std::string& why) override { told.push_back("refused: " + why); }

  std::vector<std::string> told;
};

using Told = std::vector<std::string>;

struct PortTransportTest : testing::Test {
  ~PortTransportTest() override {
    transport.reset();
    inbox->end();
    g_clear_object(&port);
    g_object_unref(session);
  }

  void watch(bool isOpen) {
    transport =
        PortTransport::watch(port, isOpen, [this](viewer::PortEnd why) { ended = textOf(why); });
  }
  void serve() {
    inbox->listen(listener);
    transport->serve(queue, *inbox);
    transport->start();
    glib();
  }
  static void glib() {
    while (g_main_context_iteration(nullptr, FALSE) == TRUE) {
    }
  }
  void guestDid(int event) const { g_signal_emit_by_name(port, "port-event", event); }
  void guestSends(std::string text) const {
    g_signal_emit_by_name(port, "port-data", text.data(), static_cast<int>(text.size()));
  }
  const Told& told() {
    loop.restart();
    loop.poll();
    return listener.told;
  }

  SpiceSession* session = spice_session_new();
  SpicePortChannel* port =
      SPICE_PORT_CHANNEL(g_object_ref(spice_channel_new(session, SPICE_CHANNEL_PORT, 0)));
  asio::io_context loop;
  Listener listener;
  SendQueue queue;
  std::shared_ptr<Inbox> inbox = std::make_shared<Inbox>(loop.get_executor());
  std::shared_ptr<PortTransport> transport;
  std::string ended;
};

TEST_F(PortTransportTest, APortThatIsOpenAlreadyIsOpenedOnceTheSessionIsThere) {
  watch(true);
  guestSends("too early");
  serve();
  guestSends("a");
  EXPECT_EQ(told(), (Told{"opened", "received a"}));
}

TEST_F(PortTransportTest, TheGuestOpensAndCloses) {
  watch(false);
  serve();
  guestSends("of a former program");
  guestDid(SPICE_PORT_EVENT_OPENED);
  guestSends("a");
  guestDid(SPICE_PORT_EVENT_CLOSED);
  EXPECT_EQ(told(), (Told{"none: no program in the VM has the port open", "opened", "received a",
                          "closed: no program in the VM has the port open"}));
  EXPECT_EQ(ended, "");
}

TEST_F(PortTransportTest, WhatHappensBeforeTheSessionIsNotLost) {
  watch(false);
  guestDid(SPICE_PORT_EVENT_OPENED);
  serve();
  EXPECT_EQ(told(), Told{"opened"});
}

TEST_F(PortTransportTest, TheEndOfTheConnectionEndsIt) {
  watch(true);
  serve();
  g_signal_emit_by_name(port, "channel-event", SPICE_CHANNEL_CLOSED);
  EXPECT_EQ(told(), (Told{"opened", "closed: the viewer's connection to the VM has ended"}));
  EXPECT_EQ(ended, "the viewer's connection to the VM has ended");
}

TEST_F(PortTransportTest, AMigrationDoesNot) {
  watch(true);
  serve();
  g_signal_emit_by_name(port, "channel-event", SPICE_CHANNEL_SWITCHING);
  guestDid(SPICE_PORT_EVENT_OPENED);
  EXPECT_EQ(told(),
            (Told{"opened", "closed: the viewer's connection to the VM has ended", "opened"}));
  EXPECT_EQ(ended, "");
}

TEST_F(PortTransportTest, APortThatIsFreedWithoutAWordEndsIt) {
  watch(true);
  serve();
  spice_session_disconnect(session);
  g_clear_object(&port);
  glib();
  g_object_unref(session);
  session = spice_session_new();
  EXPECT_EQ(ended, "the viewer's connection to the VM has ended");
  EXPECT_EQ(told(), (Told{"opened", "closed: the viewer's connection to the VM has ended"}));
}

// On the thread that draws the desktop, waiting for the listener would freeze it.
TEST_F(PortTransportTest, AListenerThatLagsTooFarCostsThePortAndNoTime) {
  watch(true);
  serve();
  const std::string chunk(1U << 20U, 'x');
  for (int i = 0; i < 8; ++i) guestSends(chunk);
  EXPECT_EQ(ended, "");
  guestSends("one too many");
  EXPECT_EQ(ended, "the VM sends more than the camera service takes; port closed");
  guestSends("and more");
  EXPECT_EQ(told().back(), "closed: the VM sends more than the camera service takes; port closed");
}

TEST_F(PortTransportTest, NothingIsUsedOnceItIsDetached) {
  watch(true);
  serve();
  transport->detach();
  EXPECT_EQ(
      g_signal_handler_find(port, G_SIGNAL_MATCH_DATA, 0, 0, nullptr, nullptr, transport.get()),
      0U);
  guestDid(SPICE_PORT_EVENT_CLOSED);
  g_signal_emit_by_name(port, "channel-event", SPICE_CHANNEL_CLOSED);
  transport->wake();
  glib();
  EXPECT_EQ(told(), Told{"opened"});
  EXPECT_EQ(ended, "");
}

// It may be, while the session is still being made.
TEST_F(PortTransportTest, DetachedBeforeTheSessionBegins) {
  watch(true);
  transport->serve(queue, *inbox);
  transport->start();
  transport->detach();
  glib();
  EXPECT_EQ(told(), Told{});
}

}  // namespace
}  // namespace lumsar::test
