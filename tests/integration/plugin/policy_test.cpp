// The camera policy that is built from a configuration, and its new version after the VM's HELLO.
// Drives the built plug-in through Init and Handler; the policy shows in the log and in what is
// sent to the camera service.
#include "support/plugin/plugin_test.h"

namespace lumsar_test {
namespace {

class PolicyTest : public PluginTest {
 protected:
  // The policy that the service gets for `config` after a HELLO of version 1.0.
  std::string policyOf(const std::string& config, const std::string& vmId = "vm-7") {
    startSpice(config, vmId);
    return sentPolicy(1, 0);
  }
  std::string sentPolicy(unsigned char major, unsigned char minor) {
    const unsigned int token = openSpiceChannel();
    handle(message(VmHello{.token = token, .major = major, .minor = minor, .capabilities = 0x10}));
    const Lines sent = ipc.take();
    forget();
    return sent.size() < 2 ? std::string("nothing sent") : sent[1];
  }
  static std::string sendOfPolicy(const Policy& policy) {
    return sendOf(7, bytesOf(policy.text()) + Bytes{0});
  }
};

using LoosePolicyTest = Loose<PolicyTest>;

TEST_F(PolicyTest, OfTheBuiltInConfiguration) {
  EXPECT_EQ(policyOf("", "vm-7"), sendOfPolicy(defaultPolicy()));
}

TEST_F(PolicyTest, WholeText) {
  EXPECT_EQ(
      defaultPolicy().text(),
      R"({"command":"setpolicy","policy":[{"cameraCodec":"AUTO","cameraEnableFRC":"ON",)"
      R"("cameraEncodeType":"MJPG","cameraFrameInternal":0,"cameraFullSimulate":"ON",)"
      R"("cameraMaxResolution":"4000*4000","cameraPID":"","cameraPixelFormat":["MJPG","YUYV"],)"
      R"("cameraQuality":50,"cameraVID":""}],"rdrName":"lumsar","version":"1.0","vm_id":"vm-7"})");
}

struct PolicyCase {
  std::string config;
  std::string Policy::*value;
  std::string expected;
};

class PolicyValue : public PolicyTest, public testing::WithParamInterface<PolicyCase> {};

// The built-in configuration leads to a library directory that exists, and so does none given.
TEST_P(PolicyValue, ComesFromTheConfiguration) {
  Policy policy;
  policy.*GetParam().value = GetParam().expected;
  EXPECT_EQ(policyOf(GetParam().config), sendOfPolicy(policy));
}

INSTANTIATE_TEST_SUITE_P(
    Keys, PolicyValue,
    testing::Values(
        PolicyCase{"{}", &Policy::codec, R"("Auto")"},
        PolicyCase{"[1,2]", &Policy::codec, R"("Auto")"},
        PolicyCase{R"([{"quality":"9"}])", &Policy::quality, "50"},
        PolicyCase{R"({"frame_interval":"33"})", &Policy::frameInterval, "33"},
        PolicyCase{R"({"frame_interval":"-4"})", &Policy::frameInterval, "-4"},
        PolicyCase{R"({"frame_interval":33})", &Policy::frameInterval, "0"},
        PolicyCase{R"({"frame_interval":"0x10"})", &Policy::frameInterval, "0"},
        PolicyCase{R"({"max_width":"1280"})", &Policy::resolution, R"("1280*1280")"},
        PolicyCase{R"({"max_width":1280})", &Policy::resolution, R"("*")"},
        PolicyCase{R"({"max_width":""})", &Policy::resolution, R"("*")"},
        PolicyCase{R"({"max_width":"wide"})", &Policy::resolution, R"("wide*wide")"},
        PolicyCase{R"({"max_width":null})", &Policy::resolution, R"("*")"},
        PolicyCase{R"({"quality":"75"})", &Policy::quality, "75"},
        PolicyCase{R"({"quality":"abc"})", &Policy::quality, "0"},
        PolicyCase{R"({"quality":75})", &Policy::quality, "0"},
        PolicyCase{R"({"quality":""})", &Policy::quality, "0"},
        PolicyCase{R"({"quality":null})", &Policy::quality, "0"},
        PolicyCase{R"({"quality":"99999999999"})", &Policy::quality, "0"},
        PolicyCase{R"({"encode_type":"MJPG"})", &Policy::encodeType, R"("MJPG")"},
        PolicyCase{R"({"encode_type":5})", &Policy::encodeType, "5"},
        PolicyCase{R"({"encode_type":null})", &Policy::encodeType, "null"},
        PolicyCase{R"({"encode_type":["a",1]})", &Policy::encodeType, R"(["a",1])"},
        PolicyCase{R"({"codec":"AUTO"})", &Policy::codec, R"("AUTO")"},
        PolicyCase{R"({"codec":true})", &Policy::codec, "true"},
        PolicyCase{R"({"codec":{"b":2,"a":1.5}})", &Policy::codec, R"({"a":1.5,"b":2})"},
        PolicyCase{R"({"enable_FRC":"OFF"})", &Policy::enableFrc, R"("OFF")"},
        PolicyCase{R"({"enable_FRC":0})", &Policy::enableFrc, "0"},
        PolicyCase{R"({"encode_FRC":"OFF"})", &Policy::enableFrc, R"("ON")"},
        PolicyCase{R"({"encode_30FPS":"ON","rdr_channel":"udp"})", &Policy::enableFrc, R"("ON")"}));

TEST_F(PolicyTest, AllKeysAtOnce) {
  const std::string config =
      R"({"ipc_name":"svc","relative_path":"./ipc","frame_interval":"33","max_width":"640",)"
      R"("quality":"80","encode_type":"H265","codec":"SW","enable_FRC":"OFF"})";
  const Policy policy{.codec = R"("SW")",
                      .enableFrc = R"("OFF")",
                      .encodeType = R"("H265")",
                      .frameInterval = "33",
                      .resolution = R"("640*640")",
                      .quality = "80"};
  EXPECT_EQ(policyOf(config), sendOfPolicy(policy));
}

TEST_F(PolicyTest, VmIdIsAJsonString) {
  Policy policy;
  policy.vmId = R"("a\"b\\c")";
  EXPECT_EQ(policyOf(kConfig, R"(a"b\c)"), sendOfPolicy(policy));
}

TEST_F(PolicyTest, NotJsonIsKeptOutAndInitGoesOn) {
  const Lines expected = {info("SetConfigAndPolicy: configuration:\n \"not JSON\""),
                          warning("Json command is NULL!"),
                          info(R"(Connect: Try to connect ipc: "lumsar")"),
                          info(R"(Connect to  "lumsar"  SUCCESS!)"), info("Init: Leave!")};
  EXPECT_EQ(spiceInit("not JSON"), 0);
  const Lines lines = log.take();
  ASSERT_GT(lines.size(), expected.size());
  EXPECT_EQ(Lines(lines.end() - static_cast<long>(expected.size()), lines.end()), expected);
  ipc.take();
}

TEST_F(LoosePolicyTest, WithoutAPolicyTheHelloSendsOneZeroByte) {
  ASSERT_EQ(spiceInit("not JSON"), 0);
  forget();
  const unsigned int token = openSpiceChannel();
  handle(message(
      VmHello{.token = token, .session = 5, .major = 2, .minor = 13, .capabilities = 0x10}));
  EXPECT_EQ(log.take().at(2), warning("Json command is NULL!"));
  EXPECT_EQ(ipc.take(), (Lines{"IsConnected", sendOf(7, Bytes{0}),
                               sendOf(9, R"({"sessionId":5,"vmId":"vm-7"})")}));
  forget();
  ctrl(R"({"command":"setpolicy"})");
  EXPECT_EQ(
      ipc.take().at(1),
      sendOf(7, bytesOf(R"({"command":"setpolicy","version":"1.0","vm_id":"vm-7"})") + Bytes{0}))
      << "the VM's version is not recorded without a policy";
}

TEST_F(PolicyTest, FailedBuildKeepsThePreviousPolicy) {
  startSpice(R"({"quality":"75"})");
  plugin.DeInit();
  ASSERT_EQ(spiceInit("not JSON", "vm-8"), 0);
  forget();
  Policy policy;
  policy.quality = "75";
  EXPECT_EQ(sentPolicy(1, 0), sendOfPolicy(policy)) << "the VM id in it is the old one, too";
}

TEST_F(PolicyTest, HelloBringsItsVersion) {
  startSpice();
  Policy policy;
  policy.version = R"("2.13")";
  EXPECT_EQ(sentPolicy(2, 13), sendOfPolicy(policy));
  policy.version = R"("255.255")";
  EXPECT_EQ(sentPolicy(255, 255), sendOfPolicy(policy));
  policy.version = R"("0.0")";
  EXPECT_EQ(sentPolicy(0, 0), sendOfPolicy(policy));
}

TEST_F(LoosePolicyTest, HelloLogsTheNewPolicy) {
  startSpice();
  const unsigned int token = openSpiceChannel();
  handle(message(VmHello{.token = token, .major = 2, .minor = 13, .capabilities = 0x10}));
  Policy policy;
  policy.version = R"("2.13")";
  EXPECT_EQ(log.take().at(2), info("UpdatePolicy: new policy:\n " + inQuotes(policy.text())));
}

TEST_F(LoosePolicyTest, LaterInitPicksTheVmsVersionUp) {
  startSpice();
  sentPolicy(2, 13);
  plugin.DeInit();
  forget();
  spiceInit(kConfig, "vm-8");
  Policy policy;
  policy.version = R"("2.13")";
  policy.vmId = R"("vm-8")";
  const Lines lines = log.take();
  EXPECT_EQ(std::count(lines.begin(), lines.end(),
                       info("SetConfigAndPolicy: policy:\n " + inQuotes(policy.text()))),
            1);
}

TEST_F(PolicyTest, HostsSetpolicyLeavesTheStoredOneAlone) {
  startSpice();
  ctrl(R"({"command":"setpolicy","policy":[{"cameraQuality":1}],"version":"9.9"})");
  forget();
  EXPECT_EQ(sentPolicy(1, 0), sendOfPolicy(Policy{}));
}

}  // namespace
}  // namespace lumsar_test
