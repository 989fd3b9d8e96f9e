// The RDP host's RdpInit and RdpDeInit: steps, status codes, what is kept, where the library is
// looked for.
#include <unistd.h>

#include "support/plugin/plugin_test.h"

namespace lumsar::test {
namespace {

const std::string kRdpDir = "./Device Redirect";

class RdpInit : public PluginTest {
 protected:
  static Lines begin(const std::string& vmId = "vm-7") {
    return {info("[RdpInit] Enter!"), info("[RdpInit] vm id[" + vmId + "]")};
  }
  static Lines settings() {
    return concat({{info("[RdpInit] ====== config json[" + kDefaultConfig + "]"),
                    info("[RdpInit] call ParseConfigJson...")},
                   defaultSettingsLines(""),
                   {useLine("lumsar", kRdpDir)}});
  }
  static Lines untilConnect(const std::string& vmId = "vm-7") {
    return concat({begin(vmId),
                   settings(),
                   objectInitLines(kRdpDir),
                   policyLines(kDefaultConfig, defaultPolicy(vmId)),
                   {info(R"(Connect: Try to connect ipc: "lumsar")")}});
  }
};

using LooseRdpInit = Loose<RdpInit>;

TEST_F(LooseFreshPluginTest, FirstRdpInitMakesTheObjectAfterLoggingTheVmId) {
  EXPECT_EQ(rdpInit(), 0);
  const Lines lines = log.take();
  ASSERT_GT(lines.size(), 3U);
  EXPECT_EQ(lines[1], info("[RdpInit] vm id[vm-7]"));
  EXPECT_TRUE(lines[2].starts_with("info: Compile time: ")) << lines[2];
  EXPECT_EQ(lines[3], info("[RdpInit] ====== config json[" + kDefaultConfig + "]"));
}

TEST_F(RdpInit, LogsEveryStepInOrder) {
  EXPECT_EQ(rdpInit(), 0);
  EXPECT_EQ(
      log.take(),
      concat({untilConnect(),
              {info(R"([RdpInit] Connect to  "lumsar"  SUCCESS!)"), info("[RdpInit] Leave!")}}));
  EXPECT_EQ(ipc.take(), (Lines{"Create vm-7", "IsConnected", "Connect lumsar"}));
}

TEST_F(RdpInit, NullVmIdIsRefusedWithoutLeave) {
  EXPECT_EQ(rdpInit(nullptr), 2);
  EXPECT_EQ(log.take(), (Lines{info("[RdpInit] Enter!"),
                               critical("[RdpInit][1540] >>>>VM id is NULL!!!<<<<\n")}));
}

TEST_F(FreshPluginTest, NullVmIdIsRefusedBeforeTheObjectIsMade) {
  EXPECT_EQ(rdpInit(nullptr), 2);
  EXPECT_EQ(log.take().size(), 2U);
}

TEST_F(LooseRdpInit, EmptyVmIdIsAccepted) {
  EXPECT_EQ(rdpInit(""), 0);
  EXPECT_EQ(
      log.take(),
      concat({untilConnect(""),
              {info(R"([RdpInit] Connect to  "lumsar"  SUCCESS!)"), info("[RdpInit] Leave!")}}));
  EXPECT_EQ(ipc.take(), (Lines{"Create 0", "IsConnected", "Connect lumsar"}));
  plugin.ShareAll(1);
  EXPECT_EQ(ipc.take(), Lines{sendOf(9, R"({"sessionId":1,"vmId":""})")});
}

TEST_F(LooseRdpInit, SecondIsRefusedAndChangesNothing) {
  startRdp();
  EXPECT_EQ(plugin.RdpInit("vm-8", nullptr), 17);
  EXPECT_EQ(
      log.take(),
      concat({begin("vm-8"),
              {critical("[RdpInit] lumsar already initialized!"), info("[RdpInit] Leave!")}}));
  openRdpChannel();
  plugin.ShareAll(1);
  EXPECT_EQ(ipc.take(), Lines{sendOf(9, R"({"sessionId":1,"vmId":"vm-7"})")});
}

TEST_F(RdpInit, RefusedWhileASpiceHostIsServed) {
  startSpice();
  EXPECT_EQ(rdpInit(), 17);
  forget();
  openSpiceChannel();
  EXPECT_EQ(ipc.receive(message(6)), 0);
  EXPECT_EQ(host.takeBytes(), std::vector<Bytes>{message(1)});
}

TEST_F(RdpInit, MissingLibraryFailsWithOne) {
  ASSERT_EQ(chdir("/"), 0);
  EXPECT_EQ(rdpInit(), 1);
  EXPECT_EQ(
      log.take(),
      concat({begin(),
              settings(),
              {info("Lumsar::Init: Enter!"), info(R"(lib path: "./Device Redirect/libvdi_ipc.so")"),
               warning("LoadControllerLibrary: >>>>load lib[./Device Redirect/libvdi_ipc.so] "
                       "failed!<<<<\n"),
               critical(R"(LoadControllerLibrary for lib: "./Device Redirect" failed!)"),
               critical("[RdpInit] lumsar initialize failed!"), info("[RdpInit] Leave!")}}));
}

TEST_F(RdpInit, MayBeTriedAgainAfterAFailure) {
  ipc.makesClient = false;
  EXPECT_EQ(rdpInit(), 1);
  EXPECT_EQ(
      log.take(),
      concat({begin(),
              settings(),
              {info("Lumsar::Init: Enter!"), info(R"(lib path: "./Device Redirect/libvdi_ipc.so")"),
               critical("Create ipc client failed!"),
               critical("[RdpInit] lumsar initialize failed!"), info("[RdpInit] Leave!")}}));
  EXPECT_EQ(ipc.take(), Lines{"Create vm-7"});
  ipc.makesClient = true;
  startRdp();
}

TEST_F(RdpInit, ChannelAndFunctionsStayWrittenAfterAFailure) {
  startSpice();
  plugin.DeInit();
  ipc.makesClient = false;
  EXPECT_EQ(rdpInit(), 1);
  ipc.makesClient = true;
  startSpice();
  openRdpChannel();
  EXPECT_EQ(ipc.receive(message(6, pattern(2000))), 0);
  const std::vector<Bytes> pieces = host.takeBytes();
  ASSERT_EQ(pieces.size(), 2U) << "camera data go out in an RDP host's pieces";
  EXPECT_EQ(pieces[0].size(), 1536U);
}

TEST_F(RdpInit, ConnectionErrorIsTheResult) {
  ipc.connectResult = 111;
  EXPECT_EQ(rdpInit(), 111);
  EXPECT_EQ(log.take(),
            concat({untilConnect(),
                    {critical("Init: connect to Local camera rdr server failed! err: 111"),
                     info("[RdpInit] Leave!")}}));
  EXPECT_EQ(ipc.take(), (Lines{"Create vm-7", "IsConnected", "Connect lumsar"}));
  EXPECT_EQ(rdpInit(), 17);
  forget();
  plugin.RdpDeInit();
  ipc.connectResult = 0;
  startRdp();
}

TEST_F(RdpInit, NullSendFunctionShowsWhenAHelloIsDue) {
  EXPECT_EQ(plugin.RdpInit("vm-7", nullptr), 0);
  forget();
  handle(message(3));
  EXPECT_EQ(
      log.take(),
      (Lines{info("[Handler] Remote RDP vchannel is Opened! Unredirect all cameras first..."),
             info("Unredirect all cameras!"),
             info("[Handler] And, then, try to send HELLO to VM..."), info("RdpSendHello: Enter!"),
             critical("RdpSendHello: RDP send data callback is NULL!!!"),
             info("RdpSendHello: Leave!")}));
  EXPECT_EQ(ipc.take(), Lines{sendOf(5)});
}

TEST_F(RdpInit, LibraryIsLookedForBelowTheWorkingDirectory) {
  ASSERT_EQ(chdir("without_VDI_IpcClientSyncCall"), 0);
  EXPECT_EQ(rdpInit(), 1) << "nothing there";
  forget();
  ASSERT_EQ(chdir(".."), 0);
  startRdp();
}

TEST_F(LooseRdpInit, VmIdIsUtf8) {
  startRdp("vm-é");
  plugin.ShareAll(1);
  EXPECT_EQ(ipc.take(), Lines{sendOf(9, R"({"sessionId":1,"vmId":"vm-é"})")});
  EXPECT_STREQ(ipc.params->clientName, "vm-é");
}

TEST_F(LooseRdpInit, DropsTheEventFunctionOfNobody) {
  startRdp();
  EXPECT_EQ(ipc.receive(message(8, "x")), 0);
  EXPECT_TRUE(log.waitFor(info("PostEventToSpice: Leave!")));
  EXPECT_EQ(log.takeElsewhere().at(0), info("Camera device change!!!"));
}

using RdpDeInit = PluginTest;
using RdpDeInitInSession = OverRdp<RdpDeInit>;

TEST_F(RdpDeInitInSession, DeInitializesBetweenItsOwnLines) {
  plugin.RdpDeInit();
  EXPECT_EQ(log.take(), concat({{info("RdpDeInit: Enter!"), info("DeInit: Enter!")},
                                unloadLines(),
                                {info("DeInit: Leave!"), info("RdpDeInit: Leave!")}}));
  EXPECT_EQ(ipc.take(), (Lines{"IsConnected", "Disconnect", "Destroy"}));
  EXPECT_FALSE(isLibraryLoaded(kRdpDir));
}

TEST_F(RdpDeInit, WithoutInitStillLeaves) {
  plugin.RdpDeInit();
  EXPECT_EQ(log.take(),
            (Lines{info("RdpDeInit: Enter!"), info("DeInit: Enter!"),
                   critical("DeInit: lumsar NOT initialized!"), info("RdpDeInit: Leave!")}));
}

TEST_F(RdpDeInitInSession, RdpInitMayFollow) {
  plugin.RdpDeInit();
  startRdp("vm-8");
  plugin.ShareAll(1);
  EXPECT_EQ(ipc.take(), Lines{sendOf(9, R"({"sessionId":1,"vmId":"vm-8"})")});
  forget();
}

TEST_F(RdpDeInitInSession, KeepsTheSendFunction) {
  plugin.RdpDeInit();
  startSpice();
  openRdpChannel();
  EXPECT_EQ(ipc.receive(message(6, pattern(2000))), 0);
  EXPECT_EQ(host.takeSent().size(), 2U) << "still the RDP host's pieces";
}

}  // namespace
}  // namespace lumsar::test
