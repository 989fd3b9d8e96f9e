// Handler: the VM's messages, its HELLO answer and what follows it, data, bad messages.
// Drives the built plug-in as an RDP host does.
// The plug-in's own HELLO is in hello_test.cpp, ShareAll by itself in share_all_test.cpp.
#include "support/plugin/plugin_test.h"

namespace lumsar_test {
namespace {

class HandlerTest : public PluginTest {
 protected:
  void SetUp() override {
    PluginTest::SetUp();
    startRdp();
  }
  static Lines matched(const VmHello& hello, const std::string& capabilities) {
    Policy policy = defaultPolicy();
    const std::string version = std::to_string(hello.major) + "." + std::to_string(hello.minor);
    policy.version = '"' + version + '"';
    return {info("[Handler] Receive HELLO from remote VM!"),
            info("[Handler] Camera channel with token[" + std::to_string(hello.token) +
                 "] connected SUCCESS! VM session[" + std::to_string(hello.session) +
                 "], version[" + version + "], capabilities[0x" + capabilities + "]"),
            info("UpdatePolicy: new policy:\n " + inQuotes(policy.text()))};
  }
  static std::string policySend(const VmHello& hello) {
    Policy policy = defaultPolicy();
    policy.version = '"' + std::to_string(hello.major) + "." + std::to_string(hello.minor) + '"';
    return sendOf(7, bytesOf(policy.text()) + Bytes{0});
  }
  static Lines shared(unsigned int session) {
    const std::string id = std::to_string(session);
    return {info("[Handler] RDP vchannel is ready to share all cameras!"),
            info("[ShareAll] Enter! session id: " + id),
            info("[RedirectAll] Enter!"),
            info("Json cmd:\n " + inQuotes(R"({"sessionId":)" + id + R"(,"vmId":"vm-7"})")),
            info("Send RDR ALL command to service!"),
            info("[RedirectAll] Leave!"),
            info("[ShareAll] Leave!")};
  }
};

using LooseHandlerTest = Loose<HandlerTest>;

TEST_F(HandlerTest, HelloWithShareAllSharesAllCameras) {
  const VmHello hello{
      .token = openRdpChannel(), .session = 3, .major = 2, .minor = 13, .capabilities = 0x13};
  handle(message(hello));
  EXPECT_EQ(log.take(), concat({matched(hello, "13"), shared(3)}));
  EXPECT_EQ(ipc.take(), (Lines{"IsConnected", policySend(hello),
                               sendOf(9, R"({"sessionId":3,"vmId":"vm-7"})")}));
}

TEST_F(HandlerTest, HelloWithoutShareAllPostsReady) {
  const VmHello hello{.token = openRdpChannel(), .session = 3, .capabilities = 0xFFFFFFEFU};
  handle(message(hello));
  EXPECT_TRUE(log.waitFor(info("PostEventToSpice: Leave!")));
  EXPECT_EQ(log.takeHere(),
            concat({matched(hello, "ffffffef"), {info("[Handler] Post event: LUMSAR is ready!")}}));
  EXPECT_EQ(log.takeElsewhere(),
            (Lines{info("PostEventToSpice: Enter!"),
                   warning("[PostEventToSpice] Post event function is NULL! Ignore this post!"),
                   info("PostEventToSpice: Leave!")}));
  EXPECT_EQ(ipc.take(), (Lines{"IsConnected", policySend(hello)}));
}

TEST_F(LooseHandlerTest, OnlyTheShareAllBitDecides) {
  const VmHello hello{.token = openRdpChannel(), .session = 1, .capabilities = 0x10};
  handle(message(hello));
  EXPECT_EQ(log.take(), concat({matched(hello, "10"), shared(1)}));
}

TEST_F(LooseHandlerTest, SessionIsUnsigned16Bit) {
  const VmHello hello{.token = openRdpChannel(), .session = 0xFFFF, .capabilities = 0x10};
  handle(message(hello));
  EXPECT_EQ(log.take(), concat({matched(hello, "10"), shared(65535)}));
}

TEST_F(LooseHandlerTest, OtherFieldsOfTheHelloAreNotLookedAt) {
  const VmHello hello{.token = openRdpChannel(), .session = 1, .capabilities = 0x10};
  Bytes bytes = message(hello);
  for (std::size_t i : {8U, 9U, 10U, 11U, 12U, 15U, 16U, 17U, 24U, 31U}) bytes[i] = 0xEE;
  handle(bytes);
  EXPECT_EQ(log.take(), concat({matched(hello, "10"), shared(1)}));
}

TEST_F(LooseHandlerTest, ShortLengthIsNotRejected) {
  const VmHello hello{.token = openRdpChannel(), .session = 1, .capabilities = 0x10};
  Bytes bytes = message(hello);
  for (const int length : {1, 31, 35}) {
    plugin.Handler(bytes.data(), length);
    EXPECT_EQ(log.take(), concat({matched(hello, "10"), shared(1)})) << length;
  }
}

TEST_F(LooseHandlerTest, EachMatchingHelloRepeatsEverything) {
  const VmHello hello{.token = openRdpChannel(), .session = 1, .capabilities = 0x10};
  handle(message(hello));
  handle(message(hello));
  EXPECT_EQ(ipc.take().size(), 6U);
}

TEST_F(LooseHandlerTest, WrongTokenIsDropped) {
  const unsigned int token = openRdpChannel();
  const unsigned int wrong = token ^ 0x8000U;
  handle(message(VmHello{.token = wrong, .major = 9, .capabilities = 0x10}));
  EXPECT_EQ(log.take(),
            (Lines{info("[Handler] Receive HELLO from remote VM!"),
                   warning("[Handler][1392] Token is dismatch! Recv[" + std::to_string(wrong) +
                           "], Own[" + std::to_string(token) + "]")}));
  handle(message(VmHello{.token = token, .capabilities = 0x10}));
  EXPECT_EQ(log.take().size(), 10U) << "the right one still counts";
}

TEST_F(LooseHandlerTest, BeforeAnyHelloTheTokenIsZero) {
  const VmHello hello{.token = 0, .session = 2, .capabilities = 0x10};
  handle(message(hello));
  EXPECT_EQ(log.take(), concat({matched(hello, "10"), shared(2)}));
}

TEST_F(HandlerTest, WithoutTheServiceOnlyThePolicyIsAdapted) {
  const VmHello hello{.token = openRdpChannel(), .major = 2, .minor = 13, .capabilities = 0x10};
  ipc.connected = false;
  handle(message(hello));
  EXPECT_EQ(log.take(), concat({matched(hello, "10"),
                                {warning("[Handler][1386] >>>>IPC is NOT connected!<<<<")}}));
  EXPECT_EQ(ipc.take(), Lines{"IsConnected"});
}

TEST_F(LooseHandlerTest, WithoutTheServiceNoReadyEventFollows) {
  const VmHello hello{.token = openRdpChannel()};
  ipc.connected = false;
  handle(message(hello));
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  EXPECT_EQ(log.take(), concat({matched(hello, "0"),
                                {warning("[Handler][1386] >>>>IPC is NOT connected!<<<<")}}));
}

TEST_F(HandlerTest, FailedPolicySendIsNotActedUpon) {
  const VmHello hello{.token = openRdpChannel(), .session = 3, .capabilities = 0x10};
  ipc.sendResults = {9, 9};
  handle(message(hello));
  Lines share = shared(3);
  share.insert(share.begin() + 5, warning("Send ipc data failed! error:9"));
  EXPECT_EQ(log.take(),
            concat({matched(hello, "10"), {warning("Send ipc data failed! error:9")}, share}));
  EXPECT_EQ(ipc.take().size(), 3U);
}

TEST_F(HandlerTest, DataGoToTheServiceWithoutALine) {
  const Bytes payload = pattern(5000);
  Bytes bytes = message(1, payload, 0xFFFFFFFFU);
  for (std::size_t i = 16; i < 32; ++i) bytes[i] = 0xEE;
  handle(bytes);
  EXPECT_EQ(ipc.take(), Lines{sendOf(6, payload)}) << "param and bytes 16 to 31 are not passed on";
}

TEST_F(HandlerTest, DataWithoutPayload) {
  handle(message(1));
  EXPECT_EQ(ipc.take(), Lines{sendOf(6)});
}

TEST_F(HandlerTest, DataLengthComesFromTheHeader) {
  Bytes bytes = message(1, "0123456789");
  bytes[8] = 4;
  handle(bytes);
  EXPECT_EQ(ipc.take(), Lines{sendOf(6, "0123")});
  bytes[8] = 10;
  plugin.Handler(bytes.data(), 1);
  EXPECT_EQ(ipc.take(), Lines{sendOf(6, "0123456789")});
}

TEST_F(HandlerTest, DataThatCannotBeSentWarns) {
  ipc.sendResults = {-4};
  handle(message(1, "x"));
  EXPECT_EQ(log.take(), Lines{warning("Send ipc data failed! error:-4")});
  EXPECT_EQ(ipc.take().size(), 1U);
}

TEST_F(HandlerTest, InvalidParameters) {
  Bytes bytes = message(1);
  const Lines expected = {critical("[Handler][1321] Invalid parameter!")};
  plugin.Handler(nullptr, 32);
  EXPECT_EQ(log.take(), expected);
  for (const int length : {0, -1, -2147483647 - 1}) {
    plugin.Handler(bytes.data(), length);
    EXPECT_EQ(log.take(), expected) << length;
  }
}

TEST_F(FreshPluginTest, HandlerChecksItsParametersBeforeItMakesTheObject) {
  plugin.Handler(nullptr, 0);
  EXPECT_EQ(log.take(), Lines{critical("[Handler][1321] Invalid parameter!")});
}

TEST_F(HandlerTest, WrongMagicIsNamed) {
  Bytes bytes = message(1);
  std::copy_n("VCAM", 4, bytes.begin());
  handle(bytes);
  EXPECT_EQ(log.take(), Lines{critical("[Handler][1340] Invalid magic:0x4d414356!")});
  std::fill_n(bytes.begin(), 4, static_cast<unsigned char>(0));
  handle(bytes);
  EXPECT_EQ(log.take(), Lines{critical("[Handler][1340] Invalid magic:0x0!")});
}

using NotInitialized = PluginTest;

TEST_F(NotInitialized, HandlerRefuses) {
  const Lines expected = {critical("[Handler][1333] Lumsar NOT initialized!")};
  handle(message(3));
  EXPECT_EQ(log.take(), expected);
  handle(Bytes(32));
  EXPECT_EQ(log.take(), expected) << "checked before the magic";
  startRdp();
  plugin.RdpDeInit();
  forget();
  handle(message(1));
  EXPECT_EQ(log.take(), expected);
}

class UnknownVmMessage : public HandlerTest, public testing::WithParamInterface<std::uint32_t> {};

TEST_P(UnknownVmMessage, IsDropped) {
  handle(message(GetParam(), "abc"));
  EXPECT_EQ(log.take(), Lines{warning("[Handler][1413] Receive unknown message type:" +
                                      std::to_string(static_cast<int>(GetParam())))});
}

INSTANTIATE_TEST_SUITE_P(Types, UnknownVmMessage,
                         testing::Values(2U, 4U, 5U, 6U, 7U, 8U, 9U, 0x100U, 0x01000000U,
                                         0x7FFFFFFFU, 0xFFFFFFFFU));

}  // namespace
}  // namespace lumsar_test
