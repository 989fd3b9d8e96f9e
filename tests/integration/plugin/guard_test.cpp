// Exceptions of a host's callables, and of an IPC library, stop at the plug-in's border: one
// critical line that names the function, a failure where there is a status, nothing held.
#include <pthread.h>

#include <stdexcept>
#include <thread>

#include "support/plugin/plugin_test.h"

namespace lumsar::test {
namespace {

class Guard : public PluginTest {
 protected:
  static std::string stopped(const std::string& function) {
    return critical(function + ": stopped by an exception: no way");
  }
};

using LooseGuard = Loose<Guard>;
using LooseGuardOverSpice = OverSpice<LooseGuard>;

TEST_F(Guard, SendInEvent) {
  startSpice();
  host.sendThrows = "no way";
  plugin.Event(0);
  EXPECT_EQ(log.take(), (Lines{info("Event: Spice channel is Opened!"), stopped("Event")}));
  host.sendThrows.clear();
  forget();
  openSpiceChannel();
}

TEST_F(LooseGuardOverSpice, SendOfCameraDataOverSpice) {
  openSpiceChannel();
  host.sendThrows = "no way";
  EXPECT_EQ(ipc.receive(message(6)), -1);
  EXPECT_EQ(log.take(), Lines{stopped("OnReceive")});
  host.sendThrows.clear();
  EXPECT_EQ(ipc.receive(message(6)), 0);
}

TEST_F(Guard, SendOfCameraDataOverRdpStopsTheRest) {
  startRdp();
  openRdpChannel();
  host.sendThrows = "no way";
  EXPECT_EQ(ipc.receive(message(6, pattern(4000))), -1);
  EXPECT_EQ(log.take(), Lines{stopped("OnReceive")});
  EXPECT_EQ(host.takeSent().size(), 1U);
}

TEST_F(Guard, SendOfTheRdpHello) {
  startRdp();
  host.sendThrows = "no way";
  handle(message(3));
  EXPECT_EQ(log.take().back(), stopped("Handler"));
  host.sendThrows.clear();
  forget();
  openRdpChannel();
}

TEST_F(LooseGuardOverSpice, SendWhenTheServiceIsLost) {
  host.sendThrows = "no way";
  EXPECT_EQ(ipc.closedCallback(1, 2), -1);
  EXPECT_EQ(log.take(), (Lines{warning("Ipc connection disconnet!! connect id: 1 , error: 2"),
                               info("UnredirectAllVCams: send cmd to vm!"), stopped("OnClose")}));
}

TEST_F(LooseGuardOverSpice, EventWhenTheServiceIsLost) {
  host.eventThrows = "no way";
  EXPECT_EQ(ipc.closedCallback(1, 2), -1);
  EXPECT_EQ(log.take().back(), stopped("OnClose"));
}

TEST_F(LooseGuardOverSpice, EventOnItsThread) {
  host.eventThrows = "no way";
  Bytes received = message(8, pattern(100000));
  EXPECT_EQ(ipc.receiveHere(received), 0);
  EXPECT_TRUE(log.waitFor(stopped("PostEventToSpice")));
  EXPECT_EQ(log.takeElsewhere(),
            (Lines{info("PostEventToSpice: Enter!"), stopped("PostEventToSpice")}));
  host.takeEvents();
  host.eventThrows.clear();
  EXPECT_EQ(ipc.receive(message(8)), 0);
  EXPECT_TRUE(log.waitFor(info("PostEventToSpice: Leave!")));
}

TEST_F(Guard, ThrownThingsThatAreNoExceptions) {
  const auto send = [](unsigned char*, int) -> int { throw 42; };
  ASSERT_EQ(plugin.Init(send, host.postEventFunc(), "vm-7", kConfig), 0);
  forget();
  plugin.Event(0);
  const Lines lines = log.take();
  ASSERT_EQ(lines.size(), 2U);
  EXPECT_TRUE(lines[1].starts_with("critical: Event: stopped by an")) << lines[1];
}

struct ThrowsWhenCopied {
  ThrowsWhenCopied() = default;
  ThrowsWhenCopied(const ThrowsWhenCopied& other) : armed(other.armed) {
    if (*armed) throw std::runtime_error("no way");
  }
  int operator()(unsigned char*, int) const { return 0; }
  std::shared_ptr<bool> armed = std::make_shared<bool>(false);
};

TEST_F(Guard, ThreadThatEndsInsideACallableIsLetGo) {
#ifdef __SANITIZE_ADDRESS__
  GTEST_SKIP() << "the sanitizer takes the end of a thread for a reference to null";
#endif
  const SpiceSendFunc send = [](unsigned char*, int) -> int { pthread_exit(nullptr); };
  ASSERT_EQ(plugin.Init(send, host.postEventFunc(), "vm-7", kConfig), 0);
  forget();
  bool returned = false;
  std::thread([&] {
    plugin.Event(0);
    returned = true;
  }).join();
  EXPECT_FALSE(returned);
  EXPECT_EQ(log.take(), Lines{info("Event: Spice channel is Opened!")});
}

TEST_F(Guard, CallableThatCannotBeCopied) {
  const ThrowsWhenCopied callable;
  const SpiceSendFunc send = callable;
  *callable.armed = true;
  EXPECT_EQ(plugin.Init(send, host.postEventFunc(), "vm-7", kConfig), -1);
  EXPECT_EQ(log.take().back(), stopped("Init"));
  startSpice();
}

TEST_F(LooseGuardOverSpice, LibraryInACommandLeavesNoLockHeld) {
  ipc.duringSend = [] { throw std::runtime_error("no way"); };
  EXPECT_EQ(ctrl(R"({"command":"unshareall"})"), -1);
  EXPECT_EQ(log.take().back(), stopped("Ctrl"));
  EXPECT_EQ(plugin.ShareAll(1), -1);
  EXPECT_EQ(log.take().back(), stopped("ShareAll"));
  plugin.RdpEvent(1);
  EXPECT_EQ(log.take().back(), stopped("RdpEvent"));
  handle(message(1));
  EXPECT_EQ(log.take().back(), stopped("Handler"));
  ipc.duringSend = nullptr;
  EXPECT_EQ(ctrl(R"({"command":"unshareall"})"), 0);
  plugin.DeInit();
}

TEST_F(LooseGuard, LibraryInInitAndDeInit) {
  ipc.duringCall = [](const std::string& call) {
    if (call.starts_with("Create")) throw std::runtime_error("no way");
  };
  EXPECT_EQ(spiceInit(), -1);
  EXPECT_EQ(log.take().back(), stopped("Init"));
  EXPECT_EQ(rdpInit(), -1);
  EXPECT_EQ(log.take().back(), stopped("RdpInit"));
  ipc.duringCall = nullptr;
  startRdp();
  ipc.duringDisconnect = [] { throw std::runtime_error("no way"); };
  plugin.DeInit();
  EXPECT_EQ(log.take(), (Lines{info("DeInit: Enter!"), stopped("DeInit")}));
  plugin.RdpDeInit();
  EXPECT_EQ(log.take(), (Lines{info("RdpDeInit: Enter!"), info("DeInit: Enter!"), stopped("DeInit"),
                               info("RdpDeInit: Leave!")}));
  ipc.duringDisconnect = nullptr;
  plugin.RdpDeInit();
  EXPECT_EQ(log.take().back(), info("RdpDeInit: Leave!"));
}

}  // namespace
}  // namespace lumsar::test
