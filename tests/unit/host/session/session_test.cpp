// Session: what of the VM's part of the handshake reaches the plug-in, and nothing after its end.
#include "session/session.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <thread>

#include "support/messages.h"
#include "support/text.h"
#include "unit/host/session/fake_plugin.h"

namespace lumsar::test {
namespace {

using namespace host;

constexpr std::uint16_t kToken = 4711;

FakePlugin& fakePlugin() {
  void* handle = dlopen(LUMSAR_FAKE_PLUGIN, RTLD_NOW);
  return *reinterpret_cast<FakePlugin* (*)()>(dlsym(handle, "fakePlugin"))();
}

struct SessionTest : testing::Test {
  SessionTest() {
    fake = {};
    report.setSink([this](const std::string& line) { said += line + "\n"; });
  }
  ~SessionTest() override { fake = {}; }

  // A VM that answers so, `times` times.
  void answer(Protocol protocol, std::uint32_t capabilities, int times = 1) {
    DriverSetup setup;
    setup.protocol = protocol;
    setup.ipcLibrary = LUMSAR_IPC_LIBRARY;
    Session session(
        loop.get_executor(), loop, plugin, setup, queue, report,
        {.onHandshake = [this](bool all) { sharesAll.push_back(all); }, .onRefused = [] {}});
    session.start();
    ChannelListener& channel = session;
    channel.channelOpened();
    for (int i = 0; i < times; ++i) {
      queue.push(hello(kToken));
      channel.channelReceived(helloAnswer({.token = kToken}, capabilities));
    }
    session.stop();
  }
  std::uint32_t capabilitiesHandled() const {
    return readHeader(fake.handled.at(0).data()).capabilities;
  }

  FakePlugin& fake = fakePlugin();
  std::string said;
  std::vector<bool> sharesAll;
  asio::io_context loop;
  Report report{true};
  SendQueue queue;
  Plugin plugin{LUMSAR_FAKE_PLUGIN};
};

// The plug-in obeys it whoever the host is.
TEST_F(SessionTest, ASpiceVmDoesNotShareAllCamerasByItself) {
  answer(Protocol::Spice, CAP_BASE_1 | CAP_SHARE_ALL, 2);
  ASSERT_EQ(fake.handled.size(), 2U);
  EXPECT_EQ(capabilitiesHandled(), CAP_BASE_1);
  EXPECT_EQ(sharesAll, (std::vector{false, false}));
  const std::string warning = "the VM asks for all cameras; only the user shares them";
  EXPECT_TRUE(has(said, warning)) << said;
  EXPECT_EQ(said.find(warning), said.rfind(warning)) << "once for each channel";
}

TEST_F(SessionTest, AnRdpVmMay) {
  answer(Protocol::Rdp, CAP_BASE_1 | CAP_SHARE_ALL);
  ASSERT_EQ(fake.handled.size(), 1U);
  EXPECT_EQ(capabilitiesHandled(), CAP_BASE_1 | CAP_SHARE_ALL);
  EXPECT_EQ(sharesAll, std::vector{true});
}

TEST_F(SessionTest, WhatAFormerProgramAtThePortHasSentIsOfThePast) {
  DriverSetup setup;
  setup.ipcLibrary = LUMSAR_IPC_LIBRARY;
  Session session(loop.get_executor(), loop, plugin, setup, queue, report,
                  {.onHandshake = [](bool) {}, .onRefused = [] {}});
  session.start();
  ChannelListener& channel = session;
  channel.channelOpened();
  queue.push(hello(kToken));
  channel.channelReceived(helloAnswer({.token = kToken}));
  channel.channelReceived(bytesOf(std::string(100, 'x')));
  EXPECT_TRUE(session.state().answered);
  EXPECT_TRUE(session.state().strayed);
  channel.channelClosed("it has ended");
  channel.channelOpened();
  EXPECT_FALSE(session.state().answered);
  EXPECT_FALSE(session.state().strayed);
  session.stop();
}

// The timer's turn and the end may fall together; the plug-in would outlive its host.
TEST_F(SessionTest, ARetryThatIsDueAtTheEndIsLeftOut) {
  fake.initStatus = STATUS_NOT_CONNECTED;
  DriverSetup setup;
  setup.ipcLibrary = LUMSAR_IPC_LIBRARY;
  Session session(loop.get_executor(), loop, plugin, setup, queue, report,
                  {.onHandshake = [](bool) {}, .onRefused = [] {}});
  session.start();
  ASSERT_TRUE(has(said, "retrying in 200 ms")) << said;
  asio::steady_timer end(loop, std::chrono::milliseconds(0));
  end.async_wait([&](std::error_code) {
    fake.initStatus = STATUS_OK;
    session.stop();
  });
  std::this_thread::sleep_until(end.expiry() + std::chrono::milliseconds(200));
  loop.run();
  EXPECT_EQ(fake.inits, 1);
  EXPECT_FALSE(session.state().initialised);
}

}  // namespace
}  // namespace lumsar::test
