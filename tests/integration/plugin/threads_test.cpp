// Many threads at once, host callables that misbehave, and many sessions one after the other.
#include <dlfcn.h>
#include <malloc.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <stdexcept>

#include "support/eventually.h"
#include "support/plugin/plugin_test.h"
#include "support/resources.h"

namespace lumsar::test {
namespace {

// Nothing is recorded here: a minute of it would fill the memory.
std::atomic<long> eventThreadsBegun = 0;
std::atomic<long> eventThreadsEnded = 0;

void countLine(QtMsgType, const QMessageLogContext&, const QString& text) {
  if (text == QLatin1String("Camera device change!!!")) ++eventThreadsBegun;
  if (text == QLatin1String("PostEventToSpice: Leave!")) ++eventThreadsEnded;
}

bool eventThreadsAreDone() {
  return eventThreadsEnded == eventThreadsBegun;
}

class Threads : public PluginTest {
 protected:
  void SetUp() override {
    PluginTest::SetUp();
    qInstallMessageHandler(countLine);
    ipc.duringCall = [this](const std::string&) { ipc.takeCalls(); };
  }
  void TearDown() override { forget(); }

  // Runs `job` again and again on a thread of its own, until stop() is called.
  void repeat(std::function<void()> job) {
    m_threads.emplace_back([this, job = std::move(job)] {
      while (!m_stop) {
        job();
        ++m_turns;
        std::this_thread::yield();
      }
    });
  }
  void stop() {
    m_stop = true;
    for (std::thread& thread : m_threads) thread.join();
    m_threads.clear();
    m_stop = false;
  }
  long turns() const { return m_turns; }

 private:
  std::vector<std::thread> m_threads;
  std::atomic<bool> m_stop = false;
  std::atomic<long> m_turns = 0;
};

std::chrono::seconds duration() {
  const char* wanted = std::getenv("LUMSAR_THREADS_SECONDS");
  return std::chrono::seconds(wanted != nullptr ? std::strtol(wanted, nullptr, 10) : 2);
}

// What a host, its VM and an IPC library may do at the same time. Commands go on while the session
// ends and begins again; messages and channel events do not, as the contract asks of a host.
TEST_F(Threads, EverythingAtOnce) {
  std::atomic<long> sent = 0;
  std::atomic<long> events = 0;
  const auto send = [&](unsigned char* data, int length) {
    if (++sent % 100 == 0) throw std::runtime_error("a host that throws");
    return data[length - 1];
  };
  const auto post = [&](RedirEvent, const char*, int) {
    if (++events % 100 == 0) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    int length = 0;
    plugin.Ctrl(R"({"command":"unshareall"})", nullptr, length);
  };
  ipc.syncReply = message(1, "[]");
  const auto end = std::chrono::steady_clock::now() + duration();
  std::thread commands([&] {
    while (std::chrono::steady_clock::now() < end) {
      std::vector<char> buffer(64);
      int length = 64;
      plugin.Ctrl(R"({"command":"list"})", buffer.data(), length);
      plugin.Ctrl(R"({"command":"setpolicy"})", nullptr, length);
      std::this_thread::yield();
    }
  });
  long sessions = 0;
  while (std::chrono::steady_clock::now() < end || sessions < 2) {
    ASSERT_EQ(plugin.Init(send, post, "vm-7", kConfig), 0);
    for (int i = 0; i < 2; ++i) {
      repeat([&] {
        Bytes data = message(6, pattern(100));
        ipc.receiveHere(data);
      });
    }
    repeat([&] {
      Bytes change = message(8, "cameras");
      ipc.receiveHere(change);
      std::this_thread::sleep_for(std::chrono::microseconds(200));  // each starts a thread
    });
    repeat([&] {
      ipc.params->onConnect(1, ipc.params->userData);
      ipc.params->onSend(1, ipc.params->userData);
    });
    repeat([&] { handle(message(1, "from the VM")); });
    repeat([&] {
      handle(message(VmHello{.token = 0xFFFF}));
      plugin.Event(0);
      plugin.Event(1);
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    stop();
    plugin.DeInit();
    // The next Init replaces the callable that event threads read.
    ASSERT_TRUE(eventually(eventThreadsAreDone));
    ++sessions;
  }
  commands.join();
  std::printf("%ld sessions, %ld turns, %ld sends, %ld events\n", sessions, turns(), sent.load(),
              events.load());
  EXPECT_GT(sent, 0);
  EXPECT_GT(events, 0);
}

// A host may call the plug-in from inside its callables, on whatever thread they run.
TEST_F(Threads, CallablesThatCallBack) {
  int depth = 0;
  const auto send = [&](unsigned char*, int) {
    if (++depth > 1) return 0;
    int length = 0;
    EXPECT_EQ(plugin.Ctrl(R"({"command":"unshareall"})", nullptr, length), 0);
    handle(message(1, "data"));
    plugin.Event(1);
    plugin.Event(0);
    EXPECT_EQ(plugin.ShareAll(1), 0);
    return 0;
  };
  std::atomic<bool> posted = false;
  const auto post = [&](RedirEvent, const char*, int) {
    int length = 0;
    EXPECT_EQ(plugin.Ctrl(R"({"command":"unshareall"})", nullptr, length), 0);
    posted = true;
  };
  ASSERT_EQ(plugin.Init(send, post, "vm-7", kConfig), 0);
  plugin.Event(0);
  EXPECT_EQ(depth, 2);
  EXPECT_EQ(ipc.receive(message(8)), 0);
  EXPECT_TRUE(eventually([&] { return posted.load() && eventThreadsAreDone(); }));
  EXPECT_EQ(ipc.params->onClose(1, 0, ipc.params->userData), 0);
}

// The host unloads the library while an event is with it: the code stays.
TEST_F(Threads, UnloadWithAnEventInFlight) {
  std::atomic<bool> inside = false;
  std::atomic<bool> go = false;
  const auto post = [&](RedirEvent, const char*, int) {
    inside = true;
    go.wait(false);
  };
  ASSERT_EQ(plugin.Init(host.sendFunc(), post, "vm-7", kConfig), 0);
  EXPECT_EQ(ipc.receive(message(8, "cameras")), 0);
  ASSERT_TRUE(eventually([&] { return inside.load(); }));
  plugin.DeInit();
  void* handle = dlopen(kPluginFile, RTLD_LAZY | RTLD_NOLOAD);
  ASSERT_NE(handle, nullptr);
  dlclose(handle);
  dlclose(handle);  // the one that the test's own host has opened
  go = true;
  go.notify_all();
  EXPECT_TRUE(eventually(eventThreadsAreDone));
}

TEST_F(Threads, ThousandSessionsLeaveNothing) {
  const auto session = [this](int i) {
    const bool isRdp = i % 2 == 0;
    const Plugin loaded(kPluginFile);
    ASSERT_EQ(isRdp ? rdpInit() : spiceInit(), 0);
    isRdp ? handle(message(3)) : loaded.Event(0);
    EXPECT_EQ(ctrl(R"({"command":"share","deviceId":"cam"})"), 0);
    EXPECT_EQ(ipc.receive(message(6, pattern(5000))), 0);
    EXPECT_EQ(ipc.receive(message(8, pattern(300))), 0);
    isRdp ? loaded.RdpDeInit() : loaded.DeInit();
    ASSERT_TRUE(eventually(eventThreadsAreDone));
    forget();
  };
  for (int i = 0; i < 100; ++i) session(i);  // until every cache is filled
  const std::size_t descriptors = openDescriptors();
  const std::size_t threads = threadsAtRest();
  const std::size_t bytes = mallinfo2().uordblks;
  for (int i = 0; i < 1000; ++i) session(i);
  EXPECT_EQ(openDescriptors(), descriptors);
  EXPECT_EQ(threadsAtRest(), threads);
  EXPECT_LE(mallinfo2().uordblks, bytes + 64'000);
  EXPECT_FALSE(isLibraryLoaded(libraryDir()));
}

}  // namespace
}  // namespace lumsar::test
