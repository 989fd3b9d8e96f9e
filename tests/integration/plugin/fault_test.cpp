// Memory and threads that cannot be had: status 14 without the object, a critical line and a failed
// call otherwise, and the next call works.
// Drives the built plug-in through its exports, in a program whose resources can be made to fail.
// The class is included for its size only.
#include "core/lumsar.h"
#include "support/plugin/faults.h"
#include "support/plugin/plugin_test.h"

namespace lumsar::test {
namespace {

const std::string kNoMemory = critical("m_instance::GetInstance: alloc memory failed!\n");

class NoObject : public FreshPluginTest {
 protected:
  Lines takeLog() { return withoutSourceLines(log.take()); }
  // Afterwards the object can be made, as if nothing had happened.
  void expectObjectCanBeMade() {
    plugin.DeInit();
    const Lines lines = log.take();
    ASSERT_EQ(lines.size(), 3U);
    EXPECT_TRUE(lines[1].starts_with("info: Compile time: "));
    EXPECT_EQ(spiceInit(), 0);
    forget();
  }
};

TEST_F(NoObject, InitIs14AndTriesAgain) {
  for (int i = 0; i < 2; ++i) {
    int status = 0;
    {
      const FailingAllocations failing(sizeof(Lumsar));
      status = spiceInit();
    }
    EXPECT_EQ(status, 14);
    EXPECT_EQ(takeLog(),
              (Lines{info("[Init][#] Enter!"), info("[Init][#] vm id[vm-7]"), kNoMemory,
                     critical("[Init][#] Get Lumsar obj failed!"), info("Init: Leave!")}));
  }
  expectObjectCanBeMade();
}

TEST_F(NoObject, RdpInitIs14) {
  int status = 0;
  {
    const FailingAllocations failing(sizeof(Lumsar));
    status = rdpInit();
  }
  EXPECT_EQ(status, 14);
  EXPECT_EQ(takeLog(),
            (Lines{info("[RdpInit] Enter!"), info("[RdpInit] vm id[vm-7]"), kNoMemory,
                   critical("[RdpInit][1548] Get Lumsar obj failed!"), info("[RdpInit] Leave!")}));
  expectObjectCanBeMade();
}

TEST_F(NoObject, DeInitReturns) {
  {
    const FailingAllocations failing(sizeof(Lumsar));
    plugin.DeInit();
  }
  EXPECT_EQ(takeLog(),
            (Lines{info("DeInit: Enter!"), kNoMemory, critical("DeInit: Get Lumsar obj failed!")}));
  expectObjectCanBeMade();
}

TEST_F(NoObject, HandlerReturns) {
  Bytes bytes = message(3);
  {
    const FailingAllocations failing(sizeof(Lumsar));
    plugin.Handler(bytes.data(), 32);
  }
  EXPECT_EQ(takeLog(), (Lines{kNoMemory, critical("[Handler][1328] Get Lumsar obj failed!")}));
  expectObjectCanBeMade();
}

TEST_F(NoObject, ShareAllIs14) {
  int status = 0;
  {
    const FailingAllocations failing(sizeof(Lumsar));
    status = plugin.ShareAll(0);
  }
  EXPECT_EQ(status, 14);
  EXPECT_EQ(takeLog(), (Lines{info("[ShareAll] Enter! session id: 0"), kNoMemory,
                              critical("[ShareAll] >>>>Get Lumsar obj failed!<<<<\n")}));
  expectObjectCanBeMade();
}

class NoMemory : public PluginTest {
 protected:
  void expectStopped(const std::string& function) {
    const Lines lines = log.take();
    ASSERT_GE(lines.size(), 1U);
    EXPECT_TRUE(lines.back().starts_with("critical: " + function + ": stopped by an exception: "))
        << lines.back();
  }
};

using LooseNoMemory = OverSpice<Loose<NoMemory>>;

TEST_F(NoMemory, ForDataToTheService) {
  startRdp();
  Bytes data = message(1, pattern(54321));
  {
    const FailingAllocations failing(54321, 55000);
    plugin.Handler(data.data(), static_cast<int>(data.size()));
  }
  EXPECT_EQ(ipc.take(), Lines{});
  expectStopped("Handler");
  handle(data);
  EXPECT_EQ(ipc.take(), Lines{sendOf(6, pattern(54321))});
}

TEST_F(LooseNoMemory, ForACommandLeavesNoLockHeld) {
  const std::string command =
      R"({"command":"unshareall","x":")" + std::string(54321, 'x') + R"("})";
  int status = 0;
  {
    const FailingAllocations failing(command.size() + 32);
    status = ctrl(command);
  }
  EXPECT_EQ(status, -1);
  expectStopped("Ctrl");
  ipc.take();
  EXPECT_EQ(ctrl(command), 0);
  EXPECT_EQ(ipc.take(), (Lines{"IsConnected", sendOf(5, command)}));
}

TEST_F(LooseNoMemory, ForADeviceChange) {
  Bytes received = message(8, pattern(54321));
  int status = 0;
  {
    const FailingAllocations failing(54321);
    status = ipc.params->onReceive(7, received.data(), static_cast<int>(received.size()),
                                   ipc.params->userData);
  }
  EXPECT_EQ(status, -1);
  expectStopped("OnReceive");
  EXPECT_EQ(ipc.receive(received), 0);
  EXPECT_EQ(host.takeEvents(1).at(0).data, pattern(54321));
  EXPECT_TRUE(log.waitFor(info("PostEventToSpice: Leave!")));
}

// The header's length is believed; four gigabytes that cannot be had end the call.
TEST_F(NoMemory, ForADeviceChangeThatClaimsFourGigabytes) {
  startSpice();
  Bytes received = message(8, "abc");
  std::fill_n(received.begin() + 8, 4, static_cast<unsigned char>(0xFF));
  int status = 0;
  {
    const FailingAllocations failing(1U << 30U, static_cast<std::size_t>(-2));
    status = ipc.receiveHere(received);
  }
  EXPECT_EQ(status, -1);
  expectStopped("OnReceive");
}

class NoThread : public Loose<OverSpice<PluginTest>> {};

TEST_F(NoThread, ForADeviceChange) {
  Bytes received = message(8, "cameras");
  int status = 0;
  {
    const FailingThreads failing;
    status = ipc.receiveHere(received);
  }
  EXPECT_EQ(status, -1);
  const Lines lines = log.take();
  ASSERT_EQ(lines.size(), 2U);
  EXPECT_EQ(lines[0], info("Camera device change!!!"));
  EXPECT_TRUE(lines[1].starts_with("critical: OnReceive: stopped by an exception: ")) << lines[1];
  EXPECT_EQ(ipc.receive(received), 0);
  EXPECT_EQ(host.takeEvents(1).at(0).data, bytesOf("cameras"));
  EXPECT_TRUE(log.waitFor(info("PostEventToSpice: Leave!")));
}

TEST_F(NoThread, ForTheReadyEvent) {
  Bytes hello = message(VmHello{.token = openSpiceChannel()});
  {
    const FailingThreads failing;
    handle(hello);
  }
  const Lines lines = log.take();
  EXPECT_TRUE(lines.back().starts_with("critical: Handler: stopped by an exception: "))
      << lines.back();
  handle(hello);
  EXPECT_EQ(host.takeEvents(1).at(0).event, 1);
  EXPECT_TRUE(log.waitFor(info("PostEventToSpice: Leave!")));
}

}  // namespace
}  // namespace lumsar::test
