// ViewerHostTest: the fixture of the tests of ViewerHost, with a plug-in that the test plays.
#pragma once

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <mutex>

#include "cameras/viewer_host.h"

#include "support/eventually.h"
#include "support/messages.h"
#include "support/temporary_directory.h"
#include "support/text.h"
#include "unit/host/session/fake_plugin.h"

namespace lumsar::test {

using namespace viewer;
using host::CameraModel;
using host::CameraRow;
using host::CameraState;
using host::Choices;
using host::Problem;

inline constexpr std::uint16_t kToken = 4711;
inline constexpr const char* kTwoCameras =
    R"({"cameras":[{"id":"a","name":"A"},{"id":"b c","name":"B","sharedHere":true}]})";

inline FakePlugin& fakePlugin() {
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

}  // namespace lumsar::test
