// The "sharetcp" command: two messages in order, 200 ms apart, with the thread's events running
// between them.
#include <QCoreApplication>
#include <QTimer>

#include "support/eventually.h"
#include "support/plugin/plugin_test.h"

namespace lumsar::test {
namespace {

const std::string kShareTcp =
    R"({"remotePort":"7000","remoteIp":"10.0.0.7", "deviceId":"cam-1","command":"sharetcp"})";
const std::string kSecond =
    "{\n    \"command\": \"sharetcp\",\n    \"deviceId\": \"cam-1\",\n"
    "    \"remoteIp\": \"10.0.0.7\",\n    \"remotePort\": \"7000\",\n    \"vmId\": \"vm-7\"\n}\n";

class ShareTcp : public PluginTest {
 protected:
  void SetUp() override {
    PluginTest::SetUp();
    startSpice();
  }
  static Lines begin() {
    return concat({{debug("Ctrl: Enter!")},
                   commandLines(kShareTcp),
                   {info("Send connect VM command to service!")}});
  }
  static Lines second() {
    return {info("Lumsar::HandleCommand: ShareTcpCmd: " + inQuotes(kSecond)),
            info("Send RDR command to service!")};
  }
  static Lines failed() {
    return {warning("Send ipc data failed! error:9"),
            warning("TransferCmd2CameraService failed! error: 9"),
            warning("Handle command[ " + inQuotes(kShareTcp) + " ] Failed!!!"),
            debug("Ctrl: Leave!")};
  }
};

using LooseShareTcp = Loose<ShareTcp>;

TEST_F(ShareTcp, SendsTheTextAndThenTheShare) {
  EXPECT_EQ(ctrl(kShareTcp), 0);
  EXPECT_EQ(log.take(),
            concat({begin(), second(), {debug("HandleCommand: Leave!"), debug("Ctrl: Leave!")}}));
  EXPECT_EQ(ipc.take(), (Lines{"IsConnected", sendOf(3, kShareTcp), sendOf(2, kSecond)}));
}

TEST_F(LooseShareTcp, Waits200MillisecondsBetween) {
  EXPECT_EQ(ctrl(kShareTcp), 0);
  const std::vector<IpcCall> calls = ipc.takeCalls();
  ASSERT_EQ(calls.size(), 3U);
  const auto pause = calls[2].time - calls[1].time;
  EXPECT_GE(pause, std::chrono::milliseconds(200));
  EXPECT_LT(pause, kAtOnce);
}

TEST_F(LooseShareTcp, ProcessesTheThreadsEventsWhileItWaits) {
  std::chrono::steady_clock::time_point fired;
  QTimer::singleShot(50, [&] { fired = std::chrono::steady_clock::now(); });
  EXPECT_EQ(ctrl(kShareTcp), 0);
  const std::vector<IpcCall> calls = ipc.takeCalls();
  ASSERT_EQ(calls.size(), 3U);
  EXPECT_GT(fired, calls[1].time);
  EXPECT_LT(fired, calls[2].time);
}

TEST_F(LooseShareTcp, KeepsOtherCommandsOutWhileItWaits) {
  std::thread other;
  ipc.duringSend = [&] {
    ipc.duringSend = nullptr;
    other = std::thread([&] { EXPECT_EQ(ctrl(R"({"command":"unshareall"})"), 0); });
  };
  EXPECT_EQ(ctrl(kShareTcp), 0);
  other.join();
  EXPECT_EQ(ipc.take(), (Lines{"IsConnected", sendOf(3, kShareTcp), sendOf(2, kSecond),
                               "IsConnected", sendOf(5, R"({"command":"unshareall"})")}));
}

TEST_F(ShareTcp, StopsWhenTheFirstCannotBeSent) {
  ipc.sendResults = {9};
  EXPECT_EQ(ctrl(kShareTcp), 9);
  EXPECT_EQ(log.take(), concat({begin(), failed()}));
  EXPECT_EQ(ipc.take(), (Lines{"IsConnected", sendOf(3, kShareTcp)}));
}

TEST_F(ShareTcp, SecondThatCannotBeSent) {
  ipc.sendResults = {0, 9};
  EXPECT_EQ(ctrl(kShareTcp), 9);
  EXPECT_EQ(log.take(), concat({begin(), second(), failed()}));
  EXPECT_EQ(ipc.take(), (Lines{"IsConnected", sendOf(3, kShareTcp), sendOf(2, kSecond)}));
}

TEST_F(LooseShareTcp, FirstIsTheHostsTextSecondReplacesItsVmId) {
  const std::string command =
      R"({"command":"sharetcp","deviceId":1,"remoteIp":2,"remotePort":3,"vmId":"mine"})";
  EXPECT_EQ(ctrl(command), 0);
  EXPECT_EQ(ipc.take(), (Lines{"IsConnected", sendOf(3, command),
                               sendOf(2,
                                      "{\n    \"command\": \"sharetcp\",\n    \"deviceId\": 1,\n"
                                      "    \"remoteIp\": 2,\n    \"remotePort\": 3,\n"
                                      "    \"vmId\": \"vm-7\"\n}\n")}));
}

class ShareTcpWithout : public ShareTcp, public testing::WithParamInterface<const char*> {};

TEST_P(ShareTcpWithout, IsRefused) {
  const std::string command = GetParam();
  EXPECT_EQ(ctrl(command), 12);
  EXPECT_EQ(log.take(),
            concat({{debug("Ctrl: Enter!")},
                    commandLines(command),
                    {warning("Cannot find some item in jsonCmd!"), debug("HandleCommand: Leave!"),
                     warning("Handle command[ " + inQuotes(command) + " ] Failed!!!"),
                     debug("Ctrl: Leave!")}}));
  EXPECT_EQ(ipc.take(), Lines{"IsConnected"});
}

INSTANTIATE_TEST_SUITE_P(
    Items, ShareTcpWithout,
    testing::Values(R"({"command":"sharetcp","remoteIp":"1","remotePort":"2"})",
                    R"({"command":"sharetcp","deviceId":"1","remotePort":"2"})",
                    R"({"command":"sharetcp","deviceId":"1","remoteIp":"2"})",
                    R"({"command":"sharetcp"})"));

}  // namespace
}  // namespace lumsar::test
