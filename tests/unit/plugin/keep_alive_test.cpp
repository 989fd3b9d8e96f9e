// The keep-alive loop, which nothing in the plug-in starts: its turns of three seconds, its lines,
// its end.
// Links the class and runs the loop on a thread; these tests take as long as the turns they count.
#include <pthread.h>

#include <csignal>

#include "core/relaxed.h"
#include "support/eventually.h"
#include "unit/plugin/inside_test.h"

namespace lumsar::test {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

class KeepAlive : public InsideTest {
 protected:
  void TearDown() override {
    stop();
    if (m_thread.joinable()) m_thread.join();
    InsideTest::TearDown();
  }
  void start() {
    storeRelaxed(object->m_keepAliveRunning, true);
    m_begin = Clock::now();
    m_thread = std::thread(&Lumsar::KeepIpcConnection, object);
  }
  void stop() { storeRelaxed(object->m_keepAliveRunning, false); }
  // Clears the flag after `delay` and returns how long the loop ran in all.
  Clock::duration stopAfter(milliseconds delay) {
    std::this_thread::sleep_for(delay);
    stop();
    m_thread.join();
    return Clock::now() - m_begin;
  }
  std::thread m_thread;
  Clock::time_point m_begin;
};

using KeepAliveInitialized = Initialized<KeepAlive>;

const std::string kReconnecting =
    warning("KeepIpcConnection: IPC is disconnected with server! Reconnecting...");

TEST_F(KeepAliveInitialized, FlagFalseFromTheStartNeverSleeps) {
  const auto begin = Clock::now();
  Lumsar::KeepIpcConnection(object);
  EXPECT_LT(Clock::now() - begin, kAtOnce);
  EXPECT_EQ(log.take(),
            (Lines{info("KeepIpcConnection: Enter!"), info("KeepIpcConnection: Leave!")}));
}

void onSignal(int) {}

TEST_F(KeepAlive, WithoutAClientWarnsAndSleepsOnAfterASignal) {
  struct sigaction action {};
  action.sa_handler = &onSignal;
  sigaction(SIGUSR1, &action, nullptr);
  start();
  std::this_thread::sleep_for(milliseconds(500));
  pthread_kill(m_thread.native_handle(), SIGUSR1);
  const auto took = stopAfter(milliseconds(500));
  EXPECT_GE(took, milliseconds(3000));
  EXPECT_LT(took, milliseconds(5900));
  EXPECT_EQ(log.take(),
            (Lines{info("KeepIpcConnection: Enter!"), warning("IsIpcConnected: client is NULL!"),
                   kReconnecting, warning("Connect: client is NULL!"),
                   info("KeepIpcConnection: Leave!")}));
}

TEST_F(KeepAliveInitialized, WhileConnectedItOnlyAsks) {
  ipc.connected = true;
  start();
  stopAfter(milliseconds(1000));
  EXPECT_EQ(log.take(),
            (Lines{info("KeepIpcConnection: Enter!"), info("KeepIpcConnection: Leave!")}));
  EXPECT_EQ(ipc.take(), Lines{"IsConnected"});
}

TEST_F(KeepAliveInitialized, ReconnectsEveryThreeSecondsUntilItWorks) {
  object->m_ipcName = "svc";
  ipc.connectResult = 111;
  start();
  const auto took = stopAfter(milliseconds(4500));
  EXPECT_GE(took, milliseconds(6000));
  EXPECT_LT(took, milliseconds(8900));
  const Lines turn = {kReconnecting, info(R"(Connect: Try to connect ipc: "svc")")};
  EXPECT_EQ(
      log.take(),
      concat(
          {{info("KeepIpcConnection: Enter!")}, turn, turn, {info("KeepIpcConnection: Leave!")}}));
  std::vector<Clock::time_point> attempts;
  for (const IpcCall& call : ipc.takeCalls()) {
    if (call.text == "Connect svc") attempts.push_back(call.time);
  }
  ASSERT_EQ(attempts.size(), 2U);
  EXPECT_GE(attempts[1] - attempts[0], milliseconds(2990));
}

TEST_F(KeepAliveInitialized, SuccessEndsTheReconnecting) {
  object->m_ipcName = "svc";
  start();
  stopAfter(milliseconds(4500));
  EXPECT_EQ(log.take(), (Lines{info("KeepIpcConnection: Enter!"), kReconnecting,
                               info(R"(Connect: Try to connect ipc: "svc")"),
                               info("KeepIpcConnection: Leave!")}));
  EXPECT_EQ(ipc.take(), (Lines{"IsConnected", "IsConnected", "Connect svc", "IsConnected"}));
}

}  // namespace
}  // namespace lumsar::test
