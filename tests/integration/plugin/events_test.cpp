// Events posted to the host: device changes and ready, on detached threads of their own.
// The event of a lost connection is in connection_callbacks_test.cpp.
#include "support/plugin/plugin_test.h"

namespace lumsar::test {
namespace {

class Events : public PluginTest {
 protected:
  // Waits for the event thread's end and returns what was logged on it.
  Lines eventThreadLines() {
    EXPECT_TRUE(log.waitFor(info("PostEventToSpice: Leave!")));
    return log.takeElsewhere();
  }
};

using EventsOverSpice = OverSpice<Events>;

using LooseEvents = Loose<Events>;

const Lines kDelivered = {info("PostEventToSpice: Enter!"), info("PostEventToSpice: Leave!")};
const Lines kIgnored = {
    info("PostEventToSpice: Enter!"),
    warning("[PostEventToSpice] Post event function is NULL! Ignore this post!"),
    info("PostEventToSpice: Leave!")};

TEST_F(EventsOverSpice, DeviceChangeReachesTheHost) {
  Bytes received = message(8, pattern(3000));
  EXPECT_EQ(ipc.receiveHere(received), 0);
  const std::vector<Posted> events = host.takeEvents(1);
  ASSERT_EQ(events.size(), 1U);
  EXPECT_EQ(events[0].event, 2);
  EXPECT_EQ(events[0].length, 3000);
  EXPECT_EQ(events[0].data, pattern(3000));
  EXPECT_NE(events[0].thread, std::this_thread::get_id());
  EXPECT_EQ(eventThreadLines(), kDelivered);
  EXPECT_EQ(log.take(), Lines{info("Camera device change!!!")});
  EXPECT_EQ(received, message(8, pattern(3000)));
}

TEST_F(LooseEvents, DeviceChangeIsACopy) {
  std::atomic<bool> changed = false;
  Bytes seen;
  std::atomic<bool> done = false;
  const auto post = [&](RedirEvent, char* data, int length) {
    while (!changed) std::this_thread::yield();
    seen.assign(data, data + length);
    done = true;
  };
  ASSERT_EQ(plugin.Init(host.sendFunc(), post, "vm-7", kConfig), 0);
  forget();
  Bytes received = message(8, "cameras");
  EXPECT_EQ(ipc.receive(received), 0) << "does not wait for the host";
  std::fill(received.begin(), received.end(), static_cast<unsigned char>('x'));
  changed = true;
  EXPECT_TRUE(log.waitFor(info("PostEventToSpice: Leave!")));
  ASSERT_TRUE(done);
  EXPECT_EQ(seen, bytesOf("cameras"));
}

TEST_F(EventsOverSpice, DeviceChangeWithoutPayloadHasAnEmptyBuffer) {
  EXPECT_EQ(ipc.receive(message(8)), 0);
  const std::vector<Posted> events = host.takeEvents(1);
  ASSERT_EQ(events.size(), 1U);
  EXPECT_EQ(events[0].event, 2);
  EXPECT_TRUE(events[0].hasData);
  EXPECT_EQ(events[0].length, 0);
  EXPECT_TRUE(log.waitFor(info("PostEventToSpice: Leave!")));
  EXPECT_EQ(log.take(), concat({{info("Camera device change!!!")}, kDelivered}));
}

TEST_F(EventsOverSpice, DeviceChangeTakesTheHeadersLength) {
  Bytes received = message(8, "0123456789");
  received[8] = 4;
  EXPECT_EQ(ipc.receive(received), 0);
  EXPECT_EQ(host.takeEvents(1).at(0).data, bytesOf("0123"));
  eventThreadLines();
  received[8] = 10;
  EXPECT_EQ(ipc.receive(received.data(), 0), 0);
  EXPECT_EQ(host.takeEvents(1).at(0).data, bytesOf("0123456789"));
  eventThreadLines();
}

TEST_F(EventsOverSpice, DeviceChangeNeedsNoOpenChannel) {
  openSpiceChannel();
  EXPECT_EQ(ipc.receive(message(8, "open")), 0);
  EXPECT_EQ(host.takeEvents(1).size(), 1U);
  eventThreadLines();
  plugin.Event(1);
  forget();
  EXPECT_EQ(ipc.receive(message(8, "closed")), 0);
  EXPECT_EQ(host.takeEvents(1).size(), 1U);
  eventThreadLines();
}

TEST_F(Events, AnRdpHostGetsNone) {
  startRdp();
  Bytes received = message(8, "cameras");
  EXPECT_EQ(ipc.receiveHere(received), 0);
  EXPECT_EQ(eventThreadLines(), kIgnored);
  EXPECT_EQ(log.take(), Lines{info("Camera device change!!!")});
}

TEST_F(LooseEvents, AnRdpHostGetsNoneEvenAfterASpiceSession) {
  startSpice();
  plugin.DeInit();
  startRdp();
  Bytes received = message(8, "cameras");
  EXPECT_EQ(ipc.receiveHere(received), 0);
  EXPECT_EQ(eventThreadLines(), kIgnored);
}

TEST_F(LooseEvents, ASpiceHostAfterAnRdpSessionGetsNone) {
  startRdp();
  plugin.RdpDeInit();
  startSpice();
  Bytes received = message(8, "cameras");
  EXPECT_EQ(ipc.receiveHere(received), 0);
  EXPECT_EQ(eventThreadLines(), kIgnored) << "the data channel stays the RDP host's";
}

TEST_F(EventsOverSpice, ReadyHasNoData) {
  handle(message(VmHello{.token = openSpiceChannel()}));
  const std::vector<Posted> events = host.takeEvents(1);
  ASSERT_EQ(events.size(), 1U);
  EXPECT_EQ(events[0].event, 1);
  EXPECT_FALSE(events[0].hasData);
  EXPECT_EQ(events[0].length, 0);
  EXPECT_NE(events[0].thread, std::this_thread::get_id());
  EXPECT_EQ(eventThreadLines(), kDelivered);
  const Lines here = log.take();
  EXPECT_EQ(here.size(), 4U);
  EXPECT_EQ(here.back(), info("[Handler] Post event: LUMSAR is ready!"));
  ipc.take();
}

TEST_F(LooseEvents, ReadyDoesNotFollowShareAll) {
  startSpice();
  handle(message(VmHello{.token = openSpiceChannel(), .capabilities = 0x10}));
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  EXPECT_EQ(host.takeEvents().size(), 0U);
  EXPECT_EQ(log.takeElsewhere(), Lines{});
}

TEST_F(LooseEvents, HandlerDoesNotWaitForTheHost) {
  std::atomic<bool> handled = false;
  std::atomic<bool> posted = false;
  const auto post = [&](RedirEvent, char*, int) {
    for (int i = 0; i < 5000 && !handled; ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    posted = handled.load();
  };
  ASSERT_EQ(plugin.Init(host.sendFunc(), post, "vm-7", kConfig), 0);
  handle(message(VmHello{.token = openSpiceChannel()}));
  handled = true;
  EXPECT_TRUE(log.waitFor(info("PostEventToSpice: Leave!")));
  EXPECT_TRUE(posted);
}

TEST_F(LooseEvents, ThreadMayOutliveDeInit) {
  std::atomic<bool> entered = false;
  std::atomic<bool> goOn = false;
  const auto post = [&](RedirEvent, char*, int) {
    entered = true;
    while (!goOn) std::this_thread::yield();
  };
  ASSERT_EQ(plugin.Init(host.sendFunc(), post, "vm-7", kConfig), 0);
  EXPECT_EQ(ipc.receive(message(8, "cameras")), 0);
  while (!entered) std::this_thread::yield();
  plugin.DeInit();
  forget();
  goOn = true;
  EXPECT_TRUE(log.waitFor(info("PostEventToSpice: Leave!")));
}

TEST_F(EventsOverSpice, SeveralAtOnce) {
  for (int i = 0; i < 20; ++i) EXPECT_EQ(ipc.receive(message(8, "cameras")), 0);
  std::size_t received = 0;
  while (received < 20) {
    const std::size_t more = host.takeEvents(1).size();
    ASSERT_GT(more, 0U);
    received += more;
  }
  EXPECT_EQ(received, 20U);
  Lines lines;
  for (int i = 0; i < 500 && lines.size() < 60; ++i) {
    lines = concat({lines, log.take()});
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  EXPECT_EQ(std::count(lines.begin(), lines.end(), info("PostEventToSpice: Leave!")), 20);
}

}  // namespace
}  // namespace lumsar::test
