// The SPICE host's Init: checks, order of steps, status codes, what is kept.
// The source line in Init's printf-style texts is compared as #.
#include <regex>

#include "support/plugin/plugin_test.h"

namespace lumsar::test {
namespace {

class SpiceInit : public PluginTest {
 protected:
  Lines takeLog() { return withoutSourceLines(log.take()); }

  static Lines begin(const std::string& config, const std::string& vmId = "vm-7") {
    return {info("[Init][#] Enter!"), info("[Init][#] vm id[" + vmId + "]"),
            info("[Init][#] config json[" + config + "]")};
  }
  static Lines untilConnect(const std::string& config = kConfig) {
    return concat({begin(config),
                   settingsLines("svc", "./ipc", libraryDir()),
                   {useLine("svc", libraryDir())},
                   objectInitLines(libraryDir()),
                   policyLines(config, Policy{}),
                   {info(R"(Connect: Try to connect ipc: "svc")")}});
  }
};

using LooseSpiceInit = Loose<SpiceInit>;
using LooseSpiceInitInSession = OverSpice<LooseSpiceInit>;

TEST_F(LooseFreshPluginTest, FirstInitMakesTheObjectAfterLoggingTheVmId) {
  EXPECT_EQ(spiceInit(), 0);
  const Lines lines = log.take();
  ASSERT_GT(lines.size(), 3U);
  EXPECT_TRUE(std::regex_match(lines[0], std::regex(R"(info: \[Init\]\[\d+\] Enter!)")));
  EXPECT_TRUE(std::regex_match(lines[1], std::regex(R"(info: \[Init\]\[\d+\] vm id\[vm-7\])")));
  EXPECT_TRUE(std::regex_match(
      lines[2],
      std::regex(R"(info: Compile time:  [A-Z][a-z]{2} [ 1-3]\d \d{4} ,  \d{2}:\d{2}:\d{2})")))
      << lines[2];
  EXPECT_TRUE(lines[3].starts_with("info: [Init][")) << lines[3];
}

TEST_F(SpiceInit, LogsEveryStepInOrder) {
  EXPECT_EQ(spiceInit(), 0);
  EXPECT_EQ(takeLog(), concat({untilConnect(),
                               {info(R"(Connect to  "svc"  SUCCESS!)"), info("Init: Leave!")}}));
  EXPECT_EQ(ipc.take(), (Lines{"Create vm-7", "IsConnected", "Connect svc"}));
}

TEST_F(SpiceInit, EmptyConfigurationMeansTheBuiltInOne) {
  EXPECT_EQ(spiceInit(""), 0);
  Lines expected = {info("[Init][#] Enter!"), info("[Init][#] vm id[vm-7]"),
                    info("[ Init ] config is NULL! Use default config!"),
                    info("[Init][#] config json[" + kDefaultConfig + "]")};
  EXPECT_EQ(takeLog(), concat({expected,
                               defaultSettingsLines(applicationDir()),
                               {useLine("lumsar", applicationDir())},
                               objectInitLines(applicationDir()),
                               policyLines(kDefaultConfig, defaultPolicy()),
                               {info(R"(Connect: Try to connect ipc: "lumsar")"),
                                info(R"(Connect to  "lumsar"  SUCCESS!)"), info("Init: Leave!")}}));
  EXPECT_EQ(ipc.take(), (Lines{"Create vm-7", "IsConnected", "Connect lumsar"}));
}

TEST_F(SpiceInit, BuiltInConfigurationHas200Characters) {
  EXPECT_EQ(kDefaultConfig.size(), 200U);
}

TEST_F(SpiceInit, EmptyVmIdIsRefusedWithoutLeave) {
  EXPECT_EQ(spiceInit(kConfig, ""), 2);
  EXPECT_EQ(takeLog(),
            (Lines{info("[Init][#] Enter!"), critical("[Init][#] >>>>VM id is NULL!!!<<<<\n")}));
}

TEST_F(FreshPluginTest, EmptyVmIdIsRefusedBeforeTheObjectIsMade) {
  EXPECT_EQ(spiceInit(kConfig, ""), 2);
  EXPECT_EQ(log.take().size(), 2U);
}

TEST_F(SpiceInit, SourceLinesAreNumbersOfDifferentStatements) {
  spiceInit(kConfig, "");
  const Lines lines = log.take();
  const std::regex site(R"(\w+: \[Init\]\[(\d+)\].*\n?)");
  std::smatch enter;
  std::smatch refusal;
  ASSERT_TRUE(std::regex_match(lines.at(0), enter, site));
  ASSERT_TRUE(std::regex_match(lines.at(1), refusal, site));
  EXPECT_LT(std::stoi(enter[1]), std::stoi(refusal[1]));
}

TEST_F(SpiceInit, EmptySendFuncIsRefusedAfterTheConfigurationWasLogged) {
  EXPECT_EQ(plugin.Init({}, host.postEventFunc(), "vm-7", kConfig), 2);
  EXPECT_EQ(takeLog(),
            concat({begin(kConfig),
                    {critical("Init: send func or event func is NULL!"), info("Init: Leave!")}}));
}

TEST_F(LooseSpiceInit, EmptyEventFuncIsRefusedAndNeitherCallableIsStored) {
  EXPECT_EQ(plugin.Init(host.sendFunc(), {}, "vm-7", kConfig), 2);
  EXPECT_EQ(takeLog(),
            concat({begin(kConfig),
                    {critical("Init: send func or event func is NULL!"), info("Init: Leave!")}}));
  plugin.Event(0);
  EXPECT_EQ(host.takeSent().size(), 0U);
}

TEST_F(SpiceInit, EmptyCallablesWithEmptyConfiguration) {
  EXPECT_EQ(plugin.Init({}, {}, "vm-7", ""), 2);
  EXPECT_EQ(takeLog(),
            (Lines{info("[Init][#] Enter!"), info("[Init][#] vm id[vm-7]"),
                   info("[ Init ] config is NULL! Use default config!"),
                   info("[Init][#] config json[" + kDefaultConfig + "]"),
                   critical("Init: send func or event func is NULL!"), info("Init: Leave!")}));
}

TEST_F(LooseSpiceInitInSession, SecondInitIsRefusedAndKeepsTheFirstCallables) {
  int called = 0;
  const auto other = [&](unsigned char*, int) { return ++called; };
  EXPECT_EQ(plugin.Init(other, host.postEventFunc(), "vm-8", "{}"), 17);
  EXPECT_EQ(takeLog(),
            (Lines{info("[Init][#] Enter!"), info("[Init][#] vm id[vm-8]"),
                   critical("Init: lumsar already initialized!"), info("Init: Leave!")}));
  plugin.Event(0);
  EXPECT_EQ(host.takeSent().size(), 1U);
  EXPECT_EQ(called, 0);
}

TEST_F(LooseSpiceInitInSession, SecondInitKeepsTheVmId) {
  EXPECT_EQ(spiceInit(kConfig, "vm-8"), 17);
  plugin.ShareAll(3);
  EXPECT_EQ(ipc.take(), Lines{sendOf(9, R"({"sessionId":3,"vmId":"vm-7"})")});
}

TEST_F(SpiceInit, MissingLibraryFailsWithOne) {
  const std::string config = configFor("nowhere");
  const std::string dir = applicationDir() + "/nowhere";
  EXPECT_EQ(spiceInit(config), 1);
  EXPECT_EQ(
      takeLog(),
      concat(
          {begin(config),
           settingsLines("svc", "./nowhere", dir),
           {useLine("svc", dir)},
           {info("Lumsar::Init: Enter!"), info("lib path: " + inQuotes(dir + "/libvdi_ipc.so")),
            warning("LoadControllerLibrary: >>>>load lib[" + dir + "/libvdi_ipc.so] failed!<<<<\n"),
            critical("LoadControllerLibrary for lib: " + inQuotes(dir) + " failed!"),
            critical("Init: lumsar initialize failed!"), info("Init: Leave!")}}));
}

TEST_F(LooseSpiceInit, FailedInitKeepsTheCallables) {
  EXPECT_EQ(spiceInit(configFor("nowhere")), 1);
  forget();
  plugin.Event(0);
  EXPECT_EQ(host.takeSent().size(), 1U);
}

TEST_F(SpiceInit, ClientThatCannotBeMadeFailsWithOne) {
  ipc.makesClient = false;
  EXPECT_EQ(spiceInit(), 1);
  EXPECT_EQ(takeLog(),
            concat({begin(kConfig),
                    settingsLines("svc", "./ipc", libraryDir()),
                    {useLine("svc", libraryDir()), info("Lumsar::Init: Enter!"),
                     info("lib path: " + inQuotes(libraryDir() + "/libvdi_ipc.so")),
                     critical("Create ipc client failed!"),
                     critical("Init: lumsar initialize failed!"), info("Init: Leave!")}}));
  EXPECT_EQ(ipc.take(), Lines{"Create vm-7"});
  EXPECT_TRUE(isLibraryLoaded(libraryDir()));
}

TEST_F(SpiceInit, ConnectionErrorIsTheResult) {
  ipc.connectResult = 111;
  EXPECT_EQ(spiceInit(), 111);
  EXPECT_EQ(takeLog(),
            concat({untilConnect(),
                    {critical("Init: connect to Local camera rdr server failed! err: 111"),
                     info("Init: Leave!")}}));
  EXPECT_EQ(ipc.take(), (Lines{"Create vm-7", "IsConnected", "Connect svc"}));
}

TEST_F(SpiceInit, ConnectionThatStandsAlreadyIs34) {
  ipc.connected = true;
  EXPECT_EQ(spiceInit(), 34);
  Lines expected = untilConnect();
  expected.back() = warning("Connect: Aready connected with IPC server!");
  expected.push_back(critical("Init: connect to Local camera rdr server failed! err: 34"));
  expected.push_back(info("Init: Leave!"));
  EXPECT_EQ(takeLog(), expected);
  EXPECT_EQ(ipc.take(), (Lines{"Create vm-7", "IsConnected"}));
}

TEST_F(SpiceInit, StaysInitializedAfterAFailedConnection) {
  ipc.connectResult = -5;
  EXPECT_EQ(spiceInit(), -5);
  forget();
  EXPECT_EQ(spiceInit(), 17);
  forget();
  plugin.DeInit();
  EXPECT_EQ(log.take(), concat({{info("DeInit: Enter!"),
                                 warning("Connect: Client is NOT connected with IPC server!")},
                                unloadLines(),
                                {info("DeInit: Leave!")}}));
  EXPECT_EQ(ipc.take(), (Lines{"IsConnected", "Destroy"}));
  ipc.connectResult = 0;
  startSpice();
}

TEST_F(LooseSpiceInit, ConfigurationEndsAtItsFirstZeroByte) {
  EXPECT_EQ(spiceInit(kConfig + std::string("\0garbage", 8)), 0);
  EXPECT_EQ(takeLog(), concat({untilConnect(),
                               {info(R"(Connect to  "svc"  SUCCESS!)"), info("Init: Leave!")}}));
}

TEST_F(LooseSpiceInit, VmIdIsUtf8) {
  startSpice(kConfig, "vm-é");
  plugin.ShareAll(1);
  EXPECT_EQ(ipc.take(), Lines{sendOf(9, R"({"sessionId":1,"vmId":"vm-é"})")});
  EXPECT_STREQ(ipc.params->clientName, "vm-é");
}

TEST_F(LooseSpiceInit, CallablesAreCopied) {
  {
    auto sender = host.sendFunc();
    auto poster = host.postEventFunc();
    ASSERT_EQ(plugin.Init(sender, poster, "vm-7", kConfig), 0);
    sender = nullptr;
    poster = nullptr;
  }
  forget();
  plugin.Event(0);
  EXPECT_EQ(host.takeSent().size(), 1U);
  EXPECT_EQ(ipc.closedCallback(1, 0), 0);
  EXPECT_EQ(host.takeEvents(1).size(), 1U);
}

TEST_F(LooseSpiceInitInSession, InitAfterDeInitTakesTheNewCallables) {
  plugin.DeInit();
  int called = 0;
  const auto other = [&](unsigned char*, int) { return ++called; };
  ASSERT_EQ(plugin.Init(other, host.postEventFunc(), "vm-8", kConfig), 0);
  plugin.Event(0);
  EXPECT_EQ(called, 1);
}

}  // namespace
}  // namespace lumsar::test
