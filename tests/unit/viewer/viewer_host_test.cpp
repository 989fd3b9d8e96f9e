// ViewerHost: what the window asks for and what it is told, with a plug-in that the test plays.
#include "cameras/viewer_host.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <mutex>

#include "support/eventually.h"
#include "support/messages.h"
#include "support/temporary_directory.h"
#include "support/text.h"
#include "unit/host/session/fake_plugin.h"

namespace lumsar::test {
namespace {

using namespace viewer;

constexpr std::uint16_t kToken = 4711;
constexpr const char* kTwoCameras =
    R"({"cameras":[{"id":"a","name":"A"},{"id":"b c","name":"B","sharedHere":true}]})";

FakePlugin& fakePlugin() {
  void* handle = dlopen(LUMSAR_FAKE_PLUGIN, RTLD_NOW);
  return *reinterpret_cast<FakePlugin* (*)()>(dlsym(handle, "fakePlugin"))();
}

class NoTransport final : public host::Transport {
 public:
  void start() override {}
  void stop() override {}
  void wake() override {}
};

// What the host tells, on its threads.
class Told {
 public:
  void show(const CameraModel& model) {
    const std::lock_guard lock(m_mutex);
    m_models.push_back(model);
    if (throws.exchange(false)) throw std::runtime_error("out of luck");
  }
  void log(const std::string& line) {
    const std::lock_guard lock(m_mutex);
    m_log += line + "\n";
  }
  std::size_t count() const {
    const std::lock_guard lock(m_mutex);
    return m_models.size();
  }
  CameraModel last() const {
    const std::lock_guard lock(m_mutex);
    return m_models.empty() ? CameraModel() : m_models.back();
  }
  std::string log() const {
    const std::lock_guard lock(m_mutex);
    return m_log;
  }

  std::atomic<bool> ended = false;
  std::atomic<bool> throws = false;  // the next time

 private:
  mutable std::mutex m_mutex;
  std::vector<CameraModel> m_models;
  std::string m_log;
};

struct ViewerHostTest : testing::Test {
  ViewerHostTest() {
    fake = {};
    fake.list = kTwoCameras;
    setup.plugin = LUMSAR_FAKE_PLUGIN;
    setup.driver.vmId = "vm";
    setup.driver.ipcLibrary = LUMSAR_IPC_LIBRARY;
    setup.choicesFile = directory.path() + "/viewer.json";
    setup.choicesKey = "key";
  }
  ~ViewerHostTest() override {
    host.reset();
    fake = {};
  }

  void start() {
    host = std::make_unique<ViewerHost>(
        std::make_shared<NoTransport>(), setup,
        ViewerHost::Actions{.connect =
                                [this](host::SendQueue& hostQueue, host::Inbox& hostInbox) {
                                  queue = &hostQueue;
                                  inbox = &hostInbox;
                                },
                            .show = [this](const CameraModel& model) { told.show(model); },
                            .log = [this](const std::string& line) { told.log(line); },
                            .ended = [this] { told.ended = true; }});
  }
  bool shows(std::function<bool(const CameraModel&)> condition) const {
    return eventually([&] { return condition(told.last()); });
  }
  bool showsBoth() const {
    return shows([](const CameraModel& model) { return model.cameras.size() == 2; });
  }
  // The VM opens its end of the port and answers.
  void handshake() {
    queue.load()->push(hello(kToken));
    inbox.load()->opened();
    inbox.load()->received(helloAnswer({.token = kToken}));
  }
  static void set(int& value, int to) { std::atomic_ref<int>(value).store(to); }
  static int now(int& value) { return std::atomic_ref<int>(value).load(); }
  // Once the host has ended: its threads use the plug-in until then.
  const std::vector<std::string>& commands() {
    host.reset();
    return fake.commands;
  }

  FakePlugin& fake = fakePlugin();
  TemporaryDirectory directory;
  HostSetup setup;
  Told told;
  std::atomic<host::SendQueue*> queue = nullptr;
  std::atomic<host::Inbox*> inbox = nullptr;
  std::unique_ptr<ViewerHost> host;
};

TEST_F(ViewerHostTest, ShowsTheCameras) {
  start();
  ASSERT_TRUE(showsBoth());
  EXPECT_EQ(told.last().shared(), std::vector<std::string>{"b c"});
}

TEST_F(ViewerHostTest, AnIdMayBeAnyText) {
  start();
  ASSERT_TRUE(showsBoth());
  const std::size_t before = told.count();
  host->setShared("b c", false);
  ASSERT_TRUE(eventually([&] { return told.count() > before; }));
  EXPECT_EQ(commands(), std::vector<std::string>{R"({"command":"unshare","deviceId":"b c"})"});
}

// A switch that a person has moved goes back when the camera is not shared.
TEST_F(ViewerHostTest, WhatWasAskedForIsAnsweredEvenIfNothingChanges) {
  start();
  ASSERT_TRUE(showsBoth());
  const std::size_t before = told.count();
  host->setShared("a", true);
  EXPECT_TRUE(eventually([&] { return told.count() > before; }));
  EXPECT_FALSE(told.last().cameras.at(0).shared);
}

constexpr const char* kEveryState =
    R"({"cameras":[{"id":"off","name":""},{"id":"on","name":"","sharedHere":true},)"
    R"({"id":"used","name":"","sharedHere":true,"inUseHere":true},)"
    R"({"id":"away","name":"","sharedHere":true,"present":false},)"
    R"({"id":"elsewhere","name":"","present":false},{"id":"denied","name":""}],)"
    R"("refusals":[{"change":"refused","camera":"denied","name":"","reason":"no"}]})";

TEST_F(ViewerHostTest, AllAreThoseThatAreThereAndOff) {
  fake.list = kEveryState;
  start();
  ASSERT_TRUE(shows([](const CameraModel& model) { return model.cameras.size() == 6; }));
  const std::size_t before = told.count();
  host->setAllShared(true);
  ASSERT_TRUE(eventually([&] { return told.count() > before; }));
  EXPECT_EQ(commands(), std::vector<std::string>{R"({"command":"share","deviceId":"off"})"});
}

TEST_F(ViewerHostTest, NoneAreAllThatAreShared) {
  fake.list = kEveryState;
  start();
  ASSERT_TRUE(shows([](const CameraModel& model) { return model.cameras.size() == 6; }));
  const std::size_t before = told.count();
  host->setAllShared(false);
  ASSERT_TRUE(eventually([&] { return told.count() >= before + 3; }));
  EXPECT_EQ(commands(), (std::vector<std::string>{R"({"command":"unshare","deviceId":"on"})",
                                                  R"({"command":"unshare","deviceId":"used"})",
                                                  R"({"command":"unshare","deviceId":"away"})"}));
}

// A camera may still be on.
TEST_F(ViewerHostTest, TheLastListHoldsWhileTheServiceDoesNotAnswer) {
  start();
  ASSERT_TRUE(showsBoth());
  const std::vector<CameraRow> rows = told.last().cameras;
  set(fake.listStatus, STATUS_LIST_CALL_FAILED);
  EXPECT_TRUE(
      shows([](const CameraModel& model) { return model.problem == Problem::ServiceSilent; }));
  EXPECT_EQ(told.last().cameras, rows);
  EXPECT_TRUE(told.last().isListed);
  set(fake.listStatus, STATUS_OK);
  EXPECT_TRUE(
      shows([](const CameraModel& model) { return model.problem != Problem::ServiceSilent; }));
}

TEST_F(ViewerHostTest, AServiceThatHasNeverAnsweredHasNoList) {
  fake.listStatus = STATUS_LIST_CALL_FAILED;
  start();
  ASSERT_TRUE(
      shows([](const CameraModel& model) { return model.problem == Problem::ServiceSilent; }));
  EXPECT_FALSE(told.last().isListed);
}

// Each answer that does not come takes seconds, which the end of the program would wait for.
TEST_F(ViewerHostTest, AServiceThatDoesNotAnswerIsAskedOnceForAClick) {
  fake.list = R"({"cameras":[{"id":"a","name":"A"}]})";
  start();
  ASSERT_TRUE(shows([](const CameraModel& model) { return model.cameras.size() == 1; }));
  set(fake.listStatus, STATUS_LIST_CALL_FAILED);
  for (const bool shared : {true, false}) {
    const int lists = now(fake.lists);
    const std::size_t before = told.count();
    host->setShared("a", shared);
    ASSERT_TRUE(eventually([&] { return told.count() > before; }));
    // By the click, and by the first of the questions that follow until it answers.
    EXPECT_LE(now(fake.lists), lists + 2);
    set(fake.listStatus, STATUS_OK);
    ASSERT_TRUE(
        shows([](const CameraModel& model) { return model.problem != Problem::ServiceSilent; }));
    set(fake.listStatus, STATUS_LIST_CALL_FAILED);
  }
}

// Nobody asks while nothing is shared and the window is closed.
TEST_F(ViewerHostTest, AChangeThatTheServiceTellsOfIsShown) {
  fake.list = R"({"cameras":[{"id":"a","name":"A"}]})";
  start();
  ASSERT_TRUE(shows([](const CameraModel& model) { return model.cameras.size() == 1; }));
  const int lists = now(fake.lists);
  std::string change = R"({"change":"added","camera":"b"})";
  fake.event(REDIR_EVENT_DEVICE_CHANGE, change.data(), static_cast<int>(change.size()));
  EXPECT_TRUE(eventually([&] { return now(fake.lists) > lists; }));
}

TEST_F(ViewerHostTest, RemembersWhatIsSharedFromThenOn) {
  start();
  ASSERT_TRUE(showsBoth());
  host->setRemembered(true);
  ASSERT_TRUE(shows([](const CameraModel& model) { return model.remembered; }));
  EXPECT_EQ(Choices(setup.choicesFile, "key").cameras(), Choices::Cameras{"b c"});
  host->setShared("a", true);
  host->setShared("b c", false);
  EXPECT_TRUE(eventually(
      [this] { return Choices(setup.choicesFile, "key").cameras() == Choices::Cameras{"a"}; }));
  host->setRemembered(false);
  ASSERT_TRUE(shows([](const CameraModel& model) { return !model.remembered; }));
  EXPECT_EQ(Choices(setup.choicesFile, "key").cameras(), std::nullopt);
}

TEST_F(ViewerHostTest, NothingIsRememberedWithoutAList) {
  ASSERT_TRUE(Choices(setup.choicesFile, "key").remember(Choices::Cameras{"a"}));
  fake.listStatus = STATUS_LIST_CALL_FAILED;
  start();
  ASSERT_TRUE(shows([](const CameraModel& model) { return model.remembered; }));
  const std::size_t before = told.count();
  host->setRemembered(true);
  ASSERT_TRUE(eventually([&] { return told.count() > before; }));
  EXPECT_EQ(Choices(setup.choicesFile, "key").cameras(), Choices::Cameras{"a"});
}

// The box goes back.
TEST_F(ViewerHostTest, AChoiceThatCannotBeSavedIsShown) {
  writeFile(directory.path() + "/file", "");
  setup.choicesFile = directory.path() + "/file/viewer.json";
  start();
  ASSERT_TRUE(showsBoth());
  EXPECT_TRUE(told.last().canRemember);
  host->setRemembered(true);
  ASSERT_TRUE(shows([](const CameraModel& model) { return model.notSaved; }));
  EXPECT_FALSE(told.last().remembered);
  EXPECT_TRUE(has(told.log(), "warning: cannot write")) << told.log();
}

TEST_F(ViewerHostTest, AVmThatCannotBeToldFromOthersIsNotRemembered) {
  setup.choicesKey = "";
  start();
  ASSERT_TRUE(showsBoth());
  EXPECT_FALSE(told.last().canRemember);
  const std::size_t before = told.count();
  host->setRemembered(true);
  ASSERT_TRUE(eventually([&] { return told.count() > before; }));
  EXPECT_FALSE(told.last().remembered);
}

TEST_F(ViewerHostTest, WhatIsRememberedIsSharedOnce) {
  ASSERT_TRUE(Choices(setup.choicesFile, "key").remember(Choices::Cameras{"a"}));
  start();
  ASSERT_TRUE(showsBoth());
  handshake();
  ASSERT_TRUE(shows([](const CameraModel& model) { return model.problem == Problem::None; }));
  handshake();
  ASSERT_TRUE(eventually([this] { return has(told.log(), "sharing a again: done"); }));
  EXPECT_EQ(commands(), (std::vector<std::string>{R"({"command":"share","deviceId":"a"})",
                                                  R"({"command":"share","deviceId":"a"})"}))
      << "the second one repeats it";
}

TEST_F(ViewerHostTest, WhatCouldNotBeSharedIsSharedAfterTheNextHandshake) {
  ASSERT_TRUE(Choices(setup.choicesFile, "key").remember(Choices::Cameras{"a"}));
  start();
  ASSERT_TRUE(showsBoth());
  set(fake.status, STATUS_NOT_CONNECTED);
  handshake();
  ASSERT_TRUE(
      shows([](const CameraModel& model) { return model.problem == Problem::ServiceSilent; }));
  set(fake.status, STATUS_OK);
  handshake();
  ASSERT_TRUE(shows([](const CameraModel& model) { return model.problem == Problem::None; }));
  const auto& all = commands();
  EXPECT_EQ(std::ranges::count(all, R"({"command":"share","deviceId":"a"})"), 2);
}

TEST_F(ViewerHostTest, AMissingPlugInIsSaidAndEndsNothingElse) {
  setup.plugin = "/nowhere/liblumsar.so.1";
  start();
  ASSERT_TRUE(eventually([this] { return told.ended.load(); }));
  EXPECT_EQ(told.last().problem, Problem::CannotStart);
  EXPECT_TRUE(has(told.log(), "no cameras: ")) << told.log();
  EXPECT_TRUE(has(told.log(), "/nowhere/liblumsar.so.1")) << told.log();
}

// With advice that a viewer can follow.
TEST_F(ViewerHostTest, AMissingIpcLibraryIsSaid) {
  setup.driver.ipcLibrary = "/nowhere/libvdi_ipc.so";
  start();
  ASSERT_TRUE(eventually([this] { return told.ended.load(); }));
  EXPECT_EQ(told.last().problem, Problem::CannotStart);
  EXPECT_TRUE(has(told.log(),
                  "cannot find the IPC library /nowhere/libvdi_ipc.so; name it with "
                  "LUMSAR_IPC_LIBRARY"))
      << told.log();
}

// The port's transport uses what this thread owns until it is told to stop.
TEST_F(ViewerHostTest, AFailureOfItsOwnThreadIsSaidAndLeavesTheHostWhereItIs) {
  start();
  ASSERT_TRUE(showsBoth());
  told.throws = true;
  host->setShared("a", true);
  EXPECT_TRUE(shows([](const CameraModel& model) { return model.problem == Problem::Failure; }));
  EXPECT_TRUE(has(told.log(), "no more cameras: out of luck")) << told.log();
  EXPECT_FALSE(told.ended);
  host->setShared("a", false);
  host->stop();
  EXPECT_TRUE(eventually([this] { return told.ended.load(); }));
  EXPECT_EQ(told.last().problem, Problem::Failure);
}

TEST_F(ViewerHostTest, AFailureOfThePlugInIsSaid) {
  fake.throws = true;
  start();
  EXPECT_TRUE(shows([](const CameraModel& model) { return model.problem == Problem::Failure; }));
}

TEST_F(ViewerHostTest, EndsWhenToldTo) {
  start();
  host->stop();
  host->stop();
  EXPECT_TRUE(eventually([this] { return told.ended.load(); }));
}

}  // namespace
}  // namespace lumsar::test
