// CameraHost: an exception on the plug-in's thread ends the cameras, not the process; no command
// holds up the channel.
#include "session/camera_host.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <future>

#include "support/messages.h"
#include "unit/host/session/fake_plugin.h"

namespace lumsar::test {
namespace {

using namespace host;
using namespace std::chrono_literals;

FakePlugin& fakePlugin() {
  void* handle = dlopen(LUMSAR_FAKE_PLUGIN, RTLD_NOW);
  return *reinterpret_cast<FakePlugin* (*)()>(dlsym(handle, "fakePlugin"))();
}

struct CameraHostTest : testing::Test {
  CameraHostTest() {
    fake = {};
    report.setSink([this](const std::string& line) { said += line + "\n"; });
  }
  ~CameraHostTest() override { fake = {}; }

  CameraHost::Settings settings() {
    DriverSetup driver;
    driver.ipcLibrary = LUMSAR_IPC_LIBRARY;
    return {.plugin = LUMSAR_FAKE_PLUGIN,
            .driver = driver,
            .status = {},
            .onHandshake = [] { return false; },
            .onRefused = [this] { refused.set_value(); },
            .onSharedAgain = [this] { sharedAgain.set_value(fake.commands.size()); }};
  }
  void expectStops() {
    camera.stop([this] { loop.stop(); });
    loop.run_for(30s);
    EXPECT_TRUE(loop.stopped()) << "the end is still reported";
  }
  // What is carried out on the plug-in's thread once a direct connection has been asked for, and
  // has neither been made nor failed.
  void whileConnecting(std::function<void()> action) {
    camera.post([this, action = std::move(action)] {
      camera.run({"share-tcp A 127.0.0.1 1", "share B"}, [this](bool) { done.set_value(); });
      camera.post(action);
    });
  }
  static bool comes(std::future<void> event) {
    return event.wait_for(30s) == std::future_status::ready;
  }

  FakePlugin& fake = fakePlugin();
  std::promise<void> refused, done;
  std::promise<std::size_t> sharedAgain;  // with so many commands
  std::string said;
  Report report{true};
  asio::io_context loop;
  asio::executor_work_guard<asio::io_context::executor_type> work = asio::make_work_guard(loop);
  CameraHost camera{loop, report, settings()};
};

TEST_F(CameraHostTest, AnExceptionEndsTheCamerasAndNotTheProcess) {
  fake.throws = true;
  camera.run({"list"}, [](bool) { FAIL() << "done"; });
  EXPECT_TRUE(comes(refused.get_future()));
  expectStops();
  EXPECT_NE(said.find("no more cameras: out of luck"), std::string::npos) << said;
}

struct NoTransport final : Transport {
  void start() override {}
  void stop() override {}
  void wake() override {}
};

TEST_F(CameraHostTest, TellsOnceWhatWasSharedHasBeenSharedAgain) {
  fake.list = R"({"cameras":[{"id":"A","name":"A"}]})";
  NoTransport transport;
  camera.start(transport);
  camera.run({"share A"}, [this](bool) { done.set_value(); });
  ASSERT_TRUE(comes(done.get_future()));
  camera.queue().push(hello(4711));
  camera.inbox().opened();
  camera.inbox().received(helloAnswer({.token = 4711}));
  EXPECT_EQ(sharedAgain.get_future().get(), 2U);
  expectStops();
}

TEST_F(CameraHostTest, ADirectConnectionHoldsUpTheNextCommandAndNothingElse) {
  fake.list = R"({"cameras":[{"id":"A","name":"A"},{"id":"B","name":"B"}]})";
  std::promise<std::size_t> commands;
  whileConnecting([&] { commands.set_value(fake.commands.size()); });
  EXPECT_EQ(commands.get_future().get(), 1U) << "the second one waits";
  ASSERT_TRUE(comes(done.get_future()));
  EXPECT_EQ(fake.commands.size(), 2U);
  EXPECT_LT(said.find("share-tcp A 127.0.0.1 1: done (0)"), said.find("share B: done (0)")) << said;
  expectStops();
}

TEST_F(CameraHostTest, TheEndDoesNotWaitForADirectConnection) {
  fake.list = R"({"cameras":[{"id":"A","name":"A"},{"id":"B","name":"B"}]})";
  std::promise<void> connecting;
  whileConnecting([&] { connecting.set_value(); });
  ASSERT_TRUE(comes(connecting.get_future()));
  expectStops();
  EXPECT_EQ(said.find("share B"), std::string::npos) << said;
}

}  // namespace
}  // namespace lumsar::test
