// The SPICE host's Ctrl and DeInit around the operations that they pass on to.
// What the commands themselves do is in commands_test.cpp.
#include "support/plugin/plugin_test.h"

namespace lumsar::test {
namespace {

using SpiceCtrl = PluginTest;
using SpiceCtrlInSession = OverSpice<SpiceCtrl>;
using LooseSpiceCtrl = OverSpice<Loose<SpiceCtrl>>;
using SpiceDeInit = OverSpice<PluginTest>;

const std::string kUnshareAll = R"({"command":"unshareall"})";

TEST_F(SpiceCtrlInSession, SuccessIsFramedByDebugLines) {
  EXPECT_EQ(ctrl(kUnshareAll), 0);
  EXPECT_EQ(log.take(), concat({{debug("Ctrl: Enter!")},
                                commandLines(kUnshareAll),
                                {debug("HandleCommand: Leave!"), debug("Ctrl: Leave!")}}));
  EXPECT_EQ(ipc.take(), (Lines{"IsConnected", sendOf(5, kUnshareAll)}));
}

TEST_F(SpiceCtrlInSession, FailureNamesTheCommand) {
  const std::string command = R"({"command":"dance"})";
  EXPECT_EQ(ctrl(command), 7);
  EXPECT_EQ(log.take(),
            concat({{debug("Ctrl: Enter!")},
                    commandLines(command),
                    {warning("[ HandleCommand ][ 697 ]Unsupported command: \"dance\" !!!\n"),
                     debug("HandleCommand: Leave!"),
                     warning(R"(Handle command[ "{\"command\":\"dance\"}" ] Failed!!!)"),
                     debug("Ctrl: Leave!")}}));
  EXPECT_EQ(ipc.take(), Lines{"IsConnected"});
}

TEST_F(SpiceCtrl, BeforeInitThereIsNoConnection) {
  EXPECT_EQ(ctrl(kUnshareAll), 30);
  EXPECT_EQ(log.take(),
            concat({{debug("Ctrl: Enter!")},
                    commandLines(kUnshareAll),
                    {warning("IsIpcConnected: client is NULL!"),
                     warning("NOT connected with local camera server!"),
                     warning("Handle command[ " + inQuotes(kUnshareAll) + " ] Failed!!!"),
                     debug("Ctrl: Leave!")}}));
}

TEST_F(SpiceCtrlInSession, CommandEndsAtItsFirstZeroByte) {
  EXPECT_EQ(ctrl(kUnshareAll + std::string("\0tail", 5)), 0);
  EXPECT_EQ(log.take(), concat({{debug("Ctrl: Enter!")},
                                commandLines(kUnshareAll),
                                {debug("HandleCommand: Leave!"), debug("Ctrl: Leave!")}}));
  EXPECT_EQ(ipc.take(), (Lines{"IsConnected", sendOf(5, kUnshareAll)}));
}

TEST_F(LooseSpiceCtrl, PassesTheServicesErrorOn) {
  ipc.sendResults = {-77};
  EXPECT_EQ(ctrl(kUnshareAll), -77);
}

TEST_F(LooseSpiceCtrl, LeavesOutputAlone) {
  std::string output(16, 'x');
  int size = 12;
  for (const char* command :
       {R"({"command":"unshareall"})", R"({"command":"share","deviceId":"c"})", "{}", "no JSON",
        R"({"command":"setpolicy"})", R"({"command":"unshare","deviceId":"c"})"}) {
    plugin.Ctrl(command, output.data(), size);
    EXPECT_EQ(output, std::string(16, 'x')) << command;
    EXPECT_EQ(size, 12) << command;
  }
}

TEST_F(FreshPluginTest, CtrlMakesTheObjectAfterItsFirstLine) {
  EXPECT_EQ(ctrl(kUnshareAll), 30);
  const Lines lines = log.take();
  ASSERT_GT(lines.size(), 2U);
  EXPECT_EQ(lines[0], debug("Ctrl: Enter!"));
  EXPECT_TRUE(lines[1].starts_with("info: Compile time: ")) << lines[1];
}

TEST_F(FreshPluginTest, DeInitWithoutInit) {
  plugin.DeInit();
  const Lines lines = log.take();
  ASSERT_EQ(lines.size(), 3U);
  EXPECT_EQ(lines[0], info("DeInit: Enter!"));
  EXPECT_TRUE(lines[1].starts_with("info: Compile time: ")) << lines[1];
  EXPECT_EQ(lines[2], critical("DeInit: lumsar NOT initialized!"));
}

TEST_F(SpiceDeInit, DisconnectsAndReleases) {
  plugin.DeInit();
  EXPECT_EQ(log.take(),
            concat({{info("DeInit: Enter!")}, unloadLines(), {info("DeInit: Leave!")}}));
  EXPECT_EQ(ipc.take(), (Lines{"IsConnected", "Disconnect", "Destroy"}));
  EXPECT_FALSE(isLibraryLoaded(libraryDir()));
}

TEST_F(SpiceDeInit, IgnoresTheStatusOfTheDisconnection) {
  ipc.disconnectResult = 3;
  plugin.DeInit();
  EXPECT_EQ(log.take(),
            concat({{info("DeInit: Enter!")}, unloadLines(), {info("DeInit: Leave!")}}));
  EXPECT_EQ(ipc.take(), (Lines{"IsConnected", "Disconnect", "Destroy"}));
}

TEST_F(SpiceDeInit, TwiceIsRefused) {
  plugin.DeInit();
  forget();
  plugin.DeInit();
  EXPECT_EQ(log.take(),
            (Lines{info("DeInit: Enter!"), critical("DeInit: lumsar NOT initialized!")}));
}

TEST_F(SpiceDeInit, SendsNothingToTheVmAndKeepsTheCallables) {
  openSpiceChannel();
  plugin.DeInit();
  EXPECT_EQ(host.takeSent().size(), 0U);
  forget();
  plugin.Event(0);
  EXPECT_EQ(host.takeSent().size(), 1U);
  forget();
}

TEST_F(SpiceDeInit, CallbacksThatComeLaterStillFindTheObject) {
  const IpcClientParams params = *ipc.params;
  plugin.DeInit();
  forget();
  EXPECT_EQ(params.onConnect(4, params.userData), 0);
  EXPECT_EQ(log.take(), Lines{info("client id[ 4 ] connect success!")});
}

}  // namespace
}  // namespace lumsar::test
