// The host's commands: what each one sends to the camera service, logs and returns.
// Drives the built plug-in through Ctrl; the camera list is in camera_list_test.cpp, the two-step
// "sharetcp" in share_tcp_test.cpp.
#include "support/plugin/plugin_test.h"

namespace lumsar::test {
namespace {

class Commands : public PluginTest {
 protected:
  void SetUp() override {
    PluginTest::SetUp();
    startSpice();
  }
  // Runs a command that must succeed; `lines` is what it logs between HandleCommand's own.
  void expectSuccess(const std::string& command, const Lines& lines, const std::string& send) {
    EXPECT_EQ(ctrl(command), 0);
    EXPECT_EQ(log.take(), concat({{debug("Ctrl: Enter!")},
                                  commandLines(command),
                                  lines,
                                  {debug("HandleCommand: Leave!"), debug("Ctrl: Leave!")}}));
    EXPECT_EQ(ipc.take(), (Lines{"IsConnected", send}));
  }
  // Runs a command that must fail before anything is sent.
  void expectRefusal(const std::string& command, int status, const Lines& lines) {
    EXPECT_EQ(ctrl(command), status);
    EXPECT_EQ(log.take(), concat({{debug("Ctrl: Enter!")},
                                  commandLines(command),
                                  lines,
                                  {warning("Handle command[ " + inQuotes(command) + " ] Failed!!!"),
                                   debug("Ctrl: Leave!")}}));
    EXPECT_EQ(ipc.take(), Lines{"IsConnected"});
  }
  // Runs a command whose send fails.
  void expectSendFailure(const std::string& command, const Lines& lines, const std::string& send,
                         int error = 9) {
    ipc.sendResults = {error};
    EXPECT_EQ(ctrl(command), error);
    EXPECT_EQ(log.take(),
              concat({{debug("Ctrl: Enter!")},
                      commandLines(command),
                      lines,
                      {warning("Send ipc data failed! error:" + std::to_string(error)),
                       warning("TransferCmd2CameraService failed! error: " + std::to_string(error)),
                       warning("Handle command[ " + inQuotes(command) + " ] Failed!!!"),
                       debug("Ctrl: Leave!")}}));
    EXPECT_EQ(ipc.take(), (Lines{"IsConnected", send}));
  }
};

using LooseCommands = Loose<Commands>;

const std::string kShare = R"({"command": "share", "deviceId": "cam-1"})";
const std::string kShareSent =
    "{\n    \"command\": \"share\",\n    \"deviceId\": \"cam-1\",\n    \"vmId\": \"vm-7\"\n}\n";
const std::string kUnshare = R"({ "deviceId" : "cam-1", "command" : "unshare" })";
const std::string kUnshareAll = R"({"command":"unshareall", "why": [1, 2]})";
const std::string kSetpolicy = R"({"command":"setpolicy","policy":[{"b":1,"a":2.5}]})";
const std::string kSetpolicySent =
    R"({"command":"setpolicy","policy":[{"a":2.5,"b":1}],"version":"1.0","vm_id":"vm-7"})";

Lines shareLog(const std::string& text) {
  return {info("Lumsar::HandleCommand: ShareCmd: " + inQuotes(text))};
}
Lines setpolicyLog(const std::string& text) {
  return {info("[Lumsar::HandleCommand] setpolicy:\n " + inQuotes(text))};
}
std::string sendOfText0(std::uint32_t type, const std::string& text) {
  return sendOf(type, bytesOf(text) + Bytes{0});
}

TEST_F(Commands, ShareAddsTheVmIdIndented) {
  expectSuccess(kShare, shareLog(kShareSent), sendOf(2, kShareSent));
}

TEST_F(Commands, ShareReplacesTheHostsVmIdAndKeepsTheRest) {
  const auto sent = [](const std::string& rest) {
    return "{\n    \"command\": \"share\",\n    \"deviceId\": " + rest +
           ",\n    \"vmId\": \"vm-7\"\n}\n";
  };
  const std::string extra = sent("5,\n    \"extra\": [\n        true,\n        null\n    ]");
  expectSuccess(R"({"vmId":"mine","extra":[true,null],"deviceId":5,"command":"share"})",
                shareLog(extra), sendOf(2, extra));
  for (const std::string id : {"null", "\"caméra\""}) {
    expectSuccess(R"({"command":"share","deviceId":)" + id + "}", shareLog(sent(id)),
                  sendOf(2, sent(id)));
  }
}

TEST_F(Commands, WithoutDeviceId) {
  for (const char* command :
       {R"({"command":"share","deviceid":"cam-1"})", R"({"command":"unshare"})"}) {
    expectRefusal(command, 12,
                  {warning("Cannot find deviceId in jsonCmd!"), debug("HandleCommand: Leave!")});
  }
}

TEST_F(Commands, ThatCannotBeSent) {
  expectSendFailure(kShare, shareLog(kShareSent), sendOf(2, kShareSent));
  expectSendFailure(kUnshare, {}, sendOf(4, kUnshare));
  expectSendFailure(kUnshareAll, {}, sendOf(5, kUnshareAll));
  expectSendFailure(kSetpolicy, setpolicyLog(kSetpolicySent), sendOfText0(7, kSetpolicySent));
}

TEST_F(Commands, UnshareGoesOutAsItCame) {
  expectSuccess(kUnshare, {}, sendOf(4, kUnshare));
}

TEST_F(Commands, UnshareAllGoesOutAsItCame) {
  expectSuccess(kUnshareAll, {}, sendOf(5, kUnshareAll));
}

// Codes of the library that are statuses of the plug-in, too, for commands that it refuses itself.
class SendError : public Commands, public testing::WithParamInterface<int> {};

TEST_P(SendError, EndsTheCommandWithItsWarningWhateverItsNumber) {
  expectSendFailure(kUnshareAll, {}, sendOf(5, kUnshareAll), GetParam());
}

INSTANTIATE_TEST_SUITE_P(Numbers, SendError, testing::Values(-1, 1, 7, 11, 12, 16, 30, 35));

TEST_F(Commands, ForwardedTextKeepsBlanksAndLineFeeds) {
  const std::string command = "\n{\t\"command\" :\r\n \"unshareall\", \"name\":\"é\" }  \n";
  expectSuccess(command, {}, sendOf(5, command));
}

TEST_F(Commands, SetpolicyGoesOutCompactWithAZeroByte) {
  expectSuccess(kSetpolicy, setpolicyLog(kSetpolicySent), sendOfText0(7, kSetpolicySent));
}

TEST_F(Commands, SetpolicyReplacesVersionAndVmIdAndAddsNothingElse) {
  const auto expectSent = [this](const std::string& command, const std::string& rest) {
    const std::string sent =
        R"({"command":"setpolicy",)" + rest + R"("version":"1.0","vm_id":"vm-7"})";
    expectSuccess(command, setpolicyLog(sent), sendOfText0(7, sent));
  };
  expectSent(R"({"command":"setpolicy","version":9,"vm_id":["mine"]})", "");
  expectSent(R"({"rdrName":"x","command":"setpolicy"})", R"("rdrName":"x",)");
}

TEST_F(Commands, SetpolicyCarriesTheVmsVersion) {
  const unsigned int token = openSpiceChannel();
  handle(message(VmHello{.token = token, .major = 12, .minor = 34, .capabilities = 0x10}));
  forget();
  const std::string sent = R"({"command":"setpolicy","version":"12.34","vm_id":"vm-7"})";
  expectSuccess(R"({"command":"setpolicy"})", setpolicyLog(sent), sendOfText0(7, sent));
}

TEST_F(Commands, WithoutCommandKey) {
  for (const char* command : {"{}", "[]", "[1]", R"({"Command":"list"})"}) {
    expectRefusal(command, 7,
                  {warning("Cannot get command from json param!"), debug("HandleCommand: Leave!")});
  }
}

TEST_F(Commands, NotJson) {
  for (const char* command : {"", "list", "{", "\"list\"", "5", "null", R"({"command":"list"}x)"}) {
    expectRefusal(command, 11, {warning("Json command is NULL!")});
  }
}

struct NameCase {
  std::string value;
  std::string name;
};

class UnsupportedCommand : public Commands, public testing::WithParamInterface<NameCase> {};

TEST_P(UnsupportedCommand, IsNamedAndRefused) {
  expectRefusal(R"({"command":)" + GetParam().value + R"(,"deviceId":"c"})", 7,
                {warning("[ HandleCommand ][ 697 ]Unsupported command: " +
                         inQuotes(GetParam().name) + " !!!\n"),
                 debug("HandleCommand: Leave!")});
}

INSTANTIATE_TEST_SUITE_P(
    Names, UnsupportedCommand,
    testing::Values(NameCase{R"("List")", "List"}, NameCase{R"("SHARE")", "SHARE"},
                    NameCase{R"("share ")", "share "}, NameCase{R"("shareTcp")", "shareTcp"},
                    NameCase{R"("")", ""}, NameCase{"5", ""}, NameCase{"null", ""},
                    NameCase{R"(["list"])", ""}, NameCase{R"("é")", "é"},
                    NameCase{R"("a\"b\n")", "a\"b\n"}));

class WhileDisconnected : public Commands, public testing::WithParamInterface<const char*> {};

TEST_P(WhileDisconnected, NothingIsSent) {
  ipc.connected = false;
  expectRefusal(GetParam(), 30, {warning("NOT connected with local camera server!")});
}

INSTANTIATE_TEST_SUITE_P(All, WhileDisconnected,
                         testing::Values(R"({"command":"list"})",
                                         R"({"command":"share","deviceId":"c"})",
                                         R"({"command":"unshareall"})",
                                         R"({"command":"setpolicy"})", R"({"command":"dance"})",
                                         "{}", "no JSON", ""));

TEST_F(Commands, FailureChangesNothing) {
  expectRefusal("{", 11, {warning("Json command is NULL!")});
  expectSuccess(kUnshareAll, {}, sendOf(5, kUnshareAll));
  expectSendFailure(kUnshareAll, {}, sendOf(5, kUnshareAll));
  expectSuccess(kUnshareAll, {}, sendOf(5, kUnshareAll));
}

TEST_F(LooseCommands, RunOnTheCallersThread) {
  std::thread::id caller;
  std::thread([&] {
    caller = std::this_thread::get_id();
    EXPECT_EQ(ctrl(kUnshareAll), 0);
  }).join();
  for (const IpcCall& call : ipc.takeCalls()) EXPECT_EQ(call.thread, caller);
}

TEST_F(LooseCommands, OneAtATime) {
  std::atomic<int> inside = 0;
  std::atomic<int> most = 0;
  ipc.duringSend = [&] {
    most = std::max(most.load(), ++inside);
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    --inside;
  };
  std::thread other([&] { EXPECT_EQ(ctrl(kUnshareAll), 0); });
  EXPECT_EQ(ctrl(kUnshareAll), 0);
  other.join();
  EXPECT_EQ(most, 1);
}

TEST_F(LooseCommands, DeInitWaitsForACommand) {
  std::atomic<bool> sending = false;
  std::atomic<bool> sent = false;
  ipc.duringSend = [&] {
    sending = true;
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    sent = true;
  };
  std::thread command([&] { EXPECT_EQ(ctrl(kUnshareAll), 0); });
  while (!sending) std::this_thread::yield();
  plugin.DeInit();
  EXPECT_TRUE(sent);
  command.join();
  EXPECT_EQ(ipc.take(),
            (Lines{"IsConnected", sendOf(5, kUnshareAll), "IsConnected", "Disconnect", "Destroy"}));
}

}  // namespace
}  // namespace lumsar::test
