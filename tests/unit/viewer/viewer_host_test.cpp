// ViewerHost: what the window asks for and what it is told, with a plug-in that the test plays.
#include "cameras/viewer_host.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <mutex>

#include "support/eventually.h"
#include "support/temporary_directory.h"
#include "support/text.h"
#include "unit/host/session/fake_plugin.h"

namespace lumsar::test {
namespace {

using namespace viewer;

constexpr const char* kTwoCameras =
    R"({"cameras":[{"id":"a","name":"A"},{"id":"b c","name":"B","sharedWith":["vm"]}]})";

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
        ViewerHost::Actions{.connect = [](host::SendQueue&, host::Inbox&) {},
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
  // Once the host has ended: its threads use the plug-in until then.
  const std::vector<std::string>& commands() {
    host.reset();
    return fake.commands;
  }

  FakePlugin& fake = fakePlugin();
  TemporaryDirectory directory;
  HostSetup setup;
  Told told;
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

TEST_F(ViewerHostTest, AllOrNone) {
  start();
  ASSERT_TRUE(showsBoth());
  const std::size_t before = told.count();
  host->setAllShared(true);
  ASSERT_TRUE(eventually([&] { return told.count() > before; }));
  EXPECT_EQ(commands(), std::vector<std::string>{R"({"command":"share","deviceId":"a"})"});
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

TEST_F(ViewerHostTest, AMissingPlugInIsSaidAndEndsNothingElse) {
  setup.plugin = "/nowhere/liblumsar.so.1";
  start();
  ASSERT_TRUE(eventually([this] { return told.ended.load(); }));
  EXPECT_EQ(told.last().problem, Problem::Failure);
  EXPECT_TRUE(has(told.last().details, "/nowhere/liblumsar.so.1")) << told.last().details;
  EXPECT_TRUE(has(told.log(), "no cameras: ")) << told.log();
}

TEST_F(ViewerHostTest, AMissingIpcLibraryIsSaid) {
  setup.driver.ipcLibrary = "/nowhere/libvdi_ipc.so";
  start();
  ASSERT_TRUE(eventually([this] { return told.ended.load(); }));
  EXPECT_TRUE(has(told.last().details, "/nowhere/libvdi_ipc.so")) << told.last().details;
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
