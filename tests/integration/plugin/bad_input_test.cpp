// Input that no correct host, VM or camera service gives: each is answered with its status and log
// line, nothing breaks, and the next correct call works.
// The sanitizer presets run the same tests and add their own judgement.
#include <algorithm>

#include "support/plugin/plugin_test.h"

namespace lumsar::test {
namespace {

std::string nested(std::size_t depth) {
  return std::string(depth, '[') + std::string(depth, ']');
}

class BadInput : public PluginTest {
 protected:
  // One correct call of each kind.
  void expectStillWorks() {
    forget();
    const std::string command = R"({"command":"unshareall"})";
    EXPECT_EQ(ctrl(command), 0);
    EXPECT_EQ(ipc.take(), (Lines{"IsConnected", sendOf(5, command)}));
    openSpiceChannel();
    EXPECT_EQ(ipc.receive(message(6, "abc")), 0);
    EXPECT_EQ(host.takeBytes(), std::vector<Bytes>{message(1, "abc")});
    forget();
  }
  std::size_t countOf(const std::string& line) {
    const Lines lines = log.take();
    return static_cast<std::size_t>(std::count(lines.begin(), lines.end(), line));
  }
};

using BadInputOverSpice = OverSpice<BadInput>;

using LooseBadInput = Loose<BadInput>;

class NoJson : public BadInput, public testing::WithParamInterface<std::string> {};

TEST_P(NoJson, AsCommandIs11) {
  startSpice();
  EXPECT_EQ(ctrl(GetParam()), 11);
  EXPECT_EQ(countOf(warning("Json command is NULL!")), 1U);
  EXPECT_EQ(ipc.take(), Lines{"IsConnected"});
  expectStillWorks();
}

TEST_P(NoJson, AsConfigurationKeepsThePresets) {
  EXPECT_EQ(spiceInit(GetParam()), 0);
  const Lines lines = log.take();
  const Lines wanted = {warning("[ParseConfigJson][41] Json command is NULL!"),
                        useLine("lumsar", applicationDir()), warning("Json command is NULL!"),
                        info("Init: Leave!")};
  for (const std::string& line : wanted) {
    EXPECT_EQ(std::count(lines.begin(), lines.end(), line), 1) << line;
  }
  expectStillWorks();
}

INSTANTIATE_TEST_SUITE_P(Texts, NoJson,
                         testing::Values("list", "{", "}", "[", "\"", R"({"command":)",
                                         R"({"command":"list",})", R"({'command':'list'})",
                                         "{\"command\":\"list\"} trailing", "nul", "1e999",
                                         "\xFF\xFE\xFD", nested(100000), std::string(100000, '['),
                                         std::string(100000, '{'), std::string(1000000, ' ')));

TEST_F(BadInputOverSpice, DeepButWithinTheParsersLimit) {
  const std::string command = R"({"command":"unshareall","x":)" + nested(500) + "}";
  EXPECT_EQ(ctrl(command), 0);
  EXPECT_EQ(ipc.take(), (Lines{"IsConnected", sendOf(5, command)}));
  expectStillWorks();
}

TEST_F(BadInputOverSpice, HugeCommand) {
  const std::string command =
      R"({"command":"unshareall","x":")" + std::string(4U << 20U, 'a') + R"("})";
  EXPECT_EQ(ctrl(command), 0);
  EXPECT_EQ(ipc.take(), (Lines{"IsConnected", sendOf(5, command)}));
  expectStillWorks();
}

TEST_F(BadInput, HugeConfiguration) {
  const std::string quality(1U << 20U, '9');
  EXPECT_EQ(
      spiceInit(R"({"ipc_name":"svc","relative_path":"./ipc","quality":")" + quality + R"("})"), 0);
  Policy policy;
  policy.quality = "0";
  EXPECT_EQ(countOf(info("SetConfigAndPolicy: policy:\n " + inQuotes(policy.text()))), 1U);
  expectStillWorks();
}

TEST_F(BadInputOverSpice, InvalidUtf8IsReplaced) {
  EXPECT_EQ(ctrl("{\"command\":\"unshareall\",\"x\":\"a\xFFz\"}"), 0);
  EXPECT_EQ(
      ipc.take(),
      (Lines{"IsConnected", sendOf(5, "{\"command\":\"unshareall\",\"x\":\"a\xEF\xBF\xBDz\"}")}));
  expectStillWorks();
}

TEST_F(BadInput, InvalidUtf8InTheConfiguration) {
  const std::string config = "{\"ipc_name\":\"s\xC3\",\"relative_path\":\"./ipc\"}";
  EXPECT_EQ(spiceInit(config), 0);
  EXPECT_EQ(ipc.take(), (Lines{"Create vm-7", "IsConnected", "Connect s\xEF\xBF\xBD"}));
  expectStillWorks();
}

TEST_F(BadInput, ConfigurationThatBeginsWithAZeroByteIsAnEmptyText) {
  EXPECT_EQ(spiceInit(std::string("\0{}", 3)), 0);
  EXPECT_EQ(withoutSourceLines(log.take()),
            concat({{info("[Init][#] Enter!"), info("[Init][#] vm id[vm-7]"),
                     info("[Init][#] config json[]"), useLine("lumsar", applicationDir())},
                    objectInitLines(applicationDir()),
                    {warning("[SetConfigAndPolicy][717] >>>>Lumsar configuration is NULL!!!<<<<\n"),
                     info(R"(Connect: Try to connect ipc: "lumsar")"),
                     info(R"(Connect to  "lumsar"  SUCCESS!)"), info("Init: Leave!")}}));
  expectStillWorks();
}

TEST_F(BadInput, ByteOrderMarkAloneIsAnEmptyText) {
  EXPECT_EQ(spiceInit("\xEF\xBB\xBF"), 0);
  EXPECT_EQ(countOf(warning("[SetConfigAndPolicy][717] >>>>Lumsar configuration is NULL!!!<<<<\n")),
            1U);
  EXPECT_EQ(ctrl("\xEF\xBB\xBF"), 11);
  expectStillWorks();
}

TEST_F(BadInputOverSpice, CommandThatBeginsWithAZeroByteIsEmpty) {
  EXPECT_EQ(ctrl(std::string("\0{}", 3)), 11);
  EXPECT_EQ(log.take().at(2), info("[ HandleCommand ] cmd: \"\" ,output_size: 0"));
  expectStillWorks();
}

TEST_F(BadInputOverSpice, EscapedZeroInAJsonText) {
  const std::string command = R"({"command":"unshare\u0000all","deviceId":"\u0000"})";
  EXPECT_EQ(ctrl(command), 7);
  EXPECT_EQ(ctrl(R"({"command":"share","deviceId":"a\u0000b"})"), 0);
  EXPECT_EQ(ipc.take().back(),
            sendOf(2,
                   "{\n    \"command\": \"share\",\n    \"deviceId\": \"a\\u0000b\",\n"
                   "    \"vmId\": \"vm-7\"\n}\n"));
  expectStillWorks();
}

TEST_F(BadInput, LongIds) {
  const std::string vmId(1U << 20U, 'v');
  startSpice(kConfig, vmId);
  EXPECT_EQ(std::string(ipc.paramsCopy.clientName, 32), std::string(31, 'v') + '\0');
  EXPECT_EQ(plugin.ShareAll(1), 0);
  EXPECT_EQ(ipc.take(), Lines{sendOf(9, R"({"sessionId":1,"vmId":")" + vmId + R"("})")});
  expectStillWorks();
}

TEST_F(LooseBadInput, LongIdOfAnRdpHost) {
  const std::string vmId(1U << 20U, 'v');
  startRdp(vmId.c_str());
  EXPECT_EQ(std::string(ipc.paramsCopy.clientName, 32), std::string(31, 'v') + '\0');
}

TEST_F(LooseBadInput, IdThatIsNotUtf8) {
  startRdp("\xFFvm");
  EXPECT_EQ(plugin.ShareAll(1), 0);
  EXPECT_EQ(ipc.take(), Lines{sendOf(9, "{\"sessionId\":1,\"vmId\":\"\xEF\xBF\xBDvm\"}")});
}

TEST_F(BadInput, LongPath) {
  const std::string dir = "/" + std::string(8000, 'd');
  EXPECT_EQ(spiceInit(R"({"ipc_name":"svc","relative_path":")" + dir + R"("})"), 1);
  EXPECT_EQ(countOf(warning("LoadControllerLibrary: >>>>load lib[" + applicationDir() + dir +
                            "/libvdi_ipc.so] failed!<<<<\n")),
            1U);
  startSpice();
  expectStillWorks();
}

TEST_F(BadInputOverSpice, EveryChannelEvent) {
  for (int event = 2; event < 256; ++event) {
    plugin.Event(event);
    plugin.Event(-event);
    EXPECT_EQ(log.take(), (Lines{warning("Unsupported channel event: " + std::to_string(event)),
                                 warning("Unsupported channel event: -" + std::to_string(event))}));
    plugin.RdpEvent(event);
    EXPECT_EQ(log.take().size(), 3U);
  }
  expectStillWorks();
}

TEST_F(BadInputOverSpice, EveryMessageType) {
  for (std::uint32_t type = 4; type < 300; ++type) {
    handle(message(type));
    EXPECT_EQ(log.take(), Lines{warning("[Handler][1413] Receive unknown message type:" +
                                        std::to_string(type))});
    if (type == 6 || type == 8) continue;
    EXPECT_EQ(ipc.receive(message(type)), 2);
    EXPECT_EQ(log.take(), Lines{warning("[OnReceive] >>>>Unknown IPC message type[" +
                                        std::to_string(type) + "]<<<<")});
  }
  expectStillWorks();
}

TEST_F(BadInputOverSpice, EveryMagicThatIsOneBitOff) {
  for (std::size_t bit = 0; bit < 32; ++bit) {
    Bytes bytes = message(1, "abc");
    bytes[bit / 8] = static_cast<unsigned char>(bytes[bit / 8] ^ (1U << (bit % 8)));
    EXPECT_EQ(ipc.receive(bytes), 5);
    EXPECT_EQ(log.take(), Lines{warning("[OnReceive][180] Invalid message magic!")});
    handle(bytes);
    EXPECT_TRUE(log.take().at(0).starts_with("critical: [Handler][1340] Invalid magic:0x"));
  }
  expectStillWorks();
}

// A header that claims more than any message can hold ends the call, and nothing is sent.
TEST_F(BadInputOverSpice, DataThatClaimMoreThanAMessageHolds) {
  for (const std::uint32_t length : {0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFFU}) {
    Bytes bytes = message(1, "abc");
    const Bytes claimed = le32(length);
    std::copy(claimed.begin(), claimed.end(), bytes.begin() + 8);
    handle(bytes);
    const Lines lines = log.take();
    ASSERT_EQ(lines.size(), 1U) << length;
    EXPECT_TRUE(lines[0].starts_with("critical: Handler: stopped by an exception: ")) << lines[0];
    EXPECT_EQ(ipc.take(), Lines{});
  }
  expectStillWorks();
}

TEST_F(BadInput, ServiceThatIsNotThere) {
  ipc.connectResult = 2;
  EXPECT_EQ(spiceInit(), 2);
  EXPECT_EQ(countOf(critical("Init: connect to Local camera rdr server failed! err: 2")), 1U);
  EXPECT_EQ(ctrl(R"({"command":"unshareall"})"), 30);
  plugin.DeInit();
  ipc.connectResult = 0;
  startSpice();
  expectStillWorks();
}

TEST_F(BadInput, ClientThatCannotBeMade) {
  ipc.makesClient = false;
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(spiceInit(), 1);
    EXPECT_EQ(countOf(critical("Create ipc client failed!")), 1U);
    EXPECT_EQ(ctrl(R"({"command":"unshareall"})"), 30);
    EXPECT_EQ(countOf(warning("IsIpcConnected: client is NULL!")), 1U);
  }
  ipc.makesClient = true;
  startSpice();
  expectStillWorks();
}

TEST_F(BadInput, CallsInTheWrongOrder) {
  plugin.RdpDeInit();
  plugin.DeInit();
  plugin.Event(1);
  plugin.Event(0);
  plugin.RdpEvent(1);
  plugin.RdpEvent(0);
  handle(message(3));
  EXPECT_EQ(plugin.ShareAll(1), 16);
  EXPECT_EQ(ctrl("{}"), 30);
  startSpice();
  expectStillWorks();
}

}  // namespace
}  // namespace lumsar::test
