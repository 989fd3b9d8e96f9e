// Message exchange and commands by themselves: framing, statuses without a client, unknown data
// channels, the reply flag, tokens.
#include "support/plugin/token.h"
#include "unit/plugin/inside_test.h"

namespace lumsar::test {
namespace {

class Exchange : public InsideTest {
 protected:
  Bytes text = bytesOf("0123456789");
};

using ExchangeInitialized = Initialized<Exchange>;

using LooseExchange = Loose<Exchange>;
using LooseExchangeInitialized = Initialized<LooseExchange>;

TEST_F(ExchangeInitialized, SendWithoutPayloadIs32Bytes) {
  EXPECT_EQ(object->SendIpcData(5, 0, nullptr, 0), 0);
  EXPECT_EQ(ipc.take(),
            Lines{"SendData " + show(Bytes{0x4D, 0x41, 0x43, 0x56, 5, 0, 0, 0} + Bytes(24))});
}

TEST_F(ExchangeInitialized, SendFramesThePayload) {
  EXPECT_EQ(object->SendIpcData(2, 0, text.data(), 10), 0);
  EXPECT_EQ(ipc.take(), Lines{"SendData " + show(bytesOf("MACV") + le32(2) + le32(10) + Bytes(20) +
                                                 bytesOf("0123456789"))});
}

TEST_F(ExchangeInitialized, SendCarriesTypeAndParamWhole) {
  EXPECT_EQ(object->SendIpcData(0x04030201, -2, text.data(), 1), 0);
  EXPECT_EQ(ipc.take(), Lines{"SendData " + show(bytesOf("MACV") + Bytes{1, 2, 3, 4} + le32(1) +
                                                 le32(0xFFFFFFFEU) + Bytes(16) + bytesOf("0"))});
}

TEST_F(ExchangeInitialized, NullDataKeepsTheLengthInTheHeader) {
  EXPECT_EQ(object->SendIpcData(5, 0, nullptr, 10), 0);
  EXPECT_EQ(ipc.take(),
            Lines{"SendData " + show(bytesOf("MACV") + le32(5) + le32(10) + Bytes(20))});
}

TEST_F(ExchangeInitialized, SendUsesABufferOfItsOwn) {
  object->SendIpcData(2, 0, text.data(), 10);
  const auto* sent = static_cast<const unsigned char*>(ipc.takeCalls().at(0).address);
  EXPECT_TRUE(sent + 42 <= text.data() || sent >= text.data() + text.size());
  EXPECT_EQ(text, bytesOf("0123456789"));
}

TEST_F(LooseExchangeInitialized, SendPassesTheLibrarysCodeOn) {
  ipc.sendResults = {-8};
  EXPECT_EQ(object->SendIpcData(5, 0, nullptr, 0), -8);
  EXPECT_EQ(log.take(), Lines{warning("Send ipc data failed! error:-8")});
}

TEST_F(Exchange, WithoutAClient) {
  unsigned int size = 5;
  int outputSize = 5;
  std::vector<char> output(5);
  EXPECT_EQ(object->SendIpcData(5, 0, nullptr, 0), 16);
  EXPECT_EQ(log.take(), Lines{warning("SendIpcData: client is NULL!")});
  EXPECT_EQ(object->IpcSyncCall(1, nullptr, 0, nullptr, &size), 16);
  EXPECT_EQ(log.take(), Lines{warning("IpcSyncCall: client is NULL!")});
  EXPECT_EQ(object->UnredirectAll(), 16);
  EXPECT_EQ(log.take(),
            (Lines{info("Unredirect all cameras!"), warning("SendIpcData: client is NULL!")}));
  EXPECT_EQ(object->RedirectAll(1), 16);
  EXPECT_EQ(log.take(),
            (Lines{info("[RedirectAll] Enter!"), info(R"(Json cmd:
 "{\"sessionId\":1,\"vmId\":\"\"}")"),
                   info("Send RDR ALL command to service!"),
                   warning("SendIpcData: client is NULL!"), info("[RedirectAll] Leave!")}));
  EXPECT_EQ(object->HandleGetCameraListCmd(output.data(), outputSize), 35);
  EXPECT_EQ(log.take(),
            (Lines{info("HandleGetCameraListCmd: Enter!"),
                   info("HandleGetCameraListCmd: Try to get camera list! Output buffer: \"\" , "
                        "size: 5"),
                   warning("IpcSyncCall: client is NULL!"),
                   warning("HandleGetCameraListCmd: IpcSyncCall failed!!! err: 16")}));
  EXPECT_EQ(size, 5U);
  EXPECT_EQ(outputSize, 5);
}

TEST_F(ExchangeInitialized, SyncCallFramesItsRequest) {
  ipc.syncReply = bytesOf("any reply");
  Bytes reply(20);
  unsigned int size = 20;
  EXPECT_EQ(object->IpcSyncCall(3, text.data(), 10, reply.data(), &size), 0);
  EXPECT_EQ(size, 9U);
  EXPECT_EQ(Bytes(reply.begin(), reply.begin() + 9), bytesOf("any reply"));
  EXPECT_EQ(ipc.take(), Lines{"SyncCall " + show(message(3, "0123456789")) + " capacity 20"});
  EXPECT_EQ(log.take(), Lines{debug("IpcSyncCall: get result! size: 9")});
}

TEST_F(ExchangeInitialized, SyncCallWithoutRequestKeepsTheLength) {
  unsigned int size = 0;
  EXPECT_EQ(object->IpcSyncCall(1, nullptr, 7, nullptr, &size), 0);
  EXPECT_EQ(ipc.take(), Lines{"SyncCall " + show(bytesOf("MACV") + le32(1) + le32(7) + Bytes(20)) +
                              " capacity 0"});
  log.clear();
}

TEST_F(LooseExchangeInitialized, SyncCallErrors) {
  unsigned int size = 0;
  ipc.syncReplySize = 77;
  ipc.syncResult = 8;
  EXPECT_EQ(object->IpcSyncCall(1, nullptr, 0, nullptr, &size), 15);
  EXPECT_EQ(size, 77U);
  EXPECT_EQ(log.take(), (Lines{warning("Ipc sync call failed! vd_ipc error:8"),
                               warning("IpcSyncCall: output buffer size too small!")}));
  for (const int code : {3, -8, 15}) {
    ipc.syncResult = code;
    EXPECT_EQ(object->IpcSyncCall(1, nullptr, 0, nullptr, &size), code);
    EXPECT_EQ(log.take(),
              Lines{warning("Ipc sync call failed! vd_ipc error:" + std::to_string(code))});
  }
}

TEST_F(LooseExchangeInitialized, TransferSendsTheArrayAsItStands) {
  QByteArray data("ab\0c\0", 5);
  object->m_replyArrived = true;
  EXPECT_EQ(object->TransferCmd2CameraService(data, 4), 0);
  EXPECT_EQ(ipc.take(), Lines{sendOf(4, Bytes{'a', 'b', 0, 'c', 0})});
  EXPECT_FALSE(object->m_replyArrived);
  ipc.sendResults = {6};
  EXPECT_EQ(object->TransferCmd2CameraService(data, 4), 6);
}

TEST_F(LooseExchangeInitialized, ListClearsTheReplyFlag) {
  object->m_replyArrived = true;
  ipc.syncResult = 1;
  int size = 0;
  EXPECT_EQ(object->HandleGetCameraListCmd(nullptr, size), 35);
  EXPECT_FALSE(object->m_replyArrived);
}

TEST_F(ExchangeInitialized, RedirectAllTakesAnyNumberAndNoLock) {
  object->m_vmId = "vm-7";
  ASSERT_TRUE(object->m_mutex.tryLock());
  EXPECT_EQ(object->RedirectAll(-1), 0);
  object->m_mutex.unlock();
  EXPECT_EQ(ipc.take(), Lines{sendOf(9, R"({"sessionId":-1,"vmId":"vm-7"})")});
  log.clear();
}

TEST_F(Exchange, UnredirectAllVCams) {
  EXPECT_EQ(object->UnredirectAllVCams(), 0);
  EXPECT_EQ(log.take(), Lines{info("UnredirectAllVCams: send cmd to vm!")});
  object->m_spiceSendFunc = host.sendFunc();
  object->m_rdpSendFunc = nullptr;
  object->m_dataChannel = 2;
  host.sendResult = -6;
  EXPECT_EQ(object->UnredirectAllVCams(), -6);
  EXPECT_EQ(log.take(), Lines{info("UnredirectAllVCams: send cmd to vm!")});
  EXPECT_EQ(host.takeBytes(), std::vector<Bytes>{message(2)});
}

class UnknownDataChannel : public Exchange, public testing::WithParamInterface<int> {};

TEST_P(UnknownDataChannel, RefusesCameraDataAfterRewritingTheType) {
  object->m_channelOpened = true;
  object->m_spiceSendFunc = host.sendFunc();
  object->m_rdpSendFunc = &HostRecord::rdpSend;
  object->m_dataChannel = GetParam();
  Bytes received = message(6, "abc");
  EXPECT_EQ(Lumsar::OnReceive(1, received.data(), 35, object), 2);
  EXPECT_EQ(log.take(), Lines{warning("[OnReceive] >>>>Unknown data channel[" +
                                      std::to_string(GetParam()) + "]<<<<")});
  EXPECT_EQ(received, message(1, "abc"));
}

TEST_P(UnknownDataChannel, LosesEvents) {
  object->m_spicePostEventFunc = host.postEventFunc();
  object->m_dataChannel = GetParam();
  Bytes received = message(8, "abc");
  EXPECT_EQ(Lumsar::OnReceive(1, received.data(), 35, object), 0);
  EXPECT_TRUE(log.waitFor(info("PostEventToSpice: Leave!")));
  EXPECT_EQ(log.takeElsewhere(), (Lines{info("PostEventToSpice: Enter!"),
                                        warning("[PostEventToSpice] >>>>Unknown data channel[" +
                                                std::to_string(GetParam()) + "]<<<<"),
                                        info("PostEventToSpice: Leave!")}));
  log.clear();
}

INSTANTIATE_TEST_SUITE_P(Values, UnknownDataChannel, testing::Values(1, 3, -1));

TEST_F(Exchange, CameraDataWithoutASpiceCallableAreAccepted) {
  object->m_channelOpened = true;
  Bytes received = message(6, "abc");
  EXPECT_EQ(Lumsar::OnReceive(1, received.data(), 35, object), 0);
  EXPECT_EQ(received, message(1, "abc"));
}

int rdpEvents = 0;
void rdpPost(RedirEvent event, char* data, int length) {
  rdpEvents += event == 2 && length == 3 && std::string(data, 3) == "abc" ? 1 : 100;
}

TEST_F(Exchange, RdpEventFunctionWouldBeCalled) {
  object->m_spicePostEventFunc = host.postEventFunc();
  object->m_rdpPostEventFunc = &rdpPost;
  object->m_dataChannel = 2;
  Bytes received = message(8, "abc");
  EXPECT_EQ(Lumsar::OnReceive(1, received.data(), 35, object), 0);
  EXPECT_TRUE(log.waitFor(info("PostEventToSpice: Leave!")));
  EXPECT_EQ(rdpEvents, 1);
  log.clear();
}

TEST_F(Exchange, SpiceEventWithoutCallableIsIgnored) {
  Bytes received = message(8, "abc");
  EXPECT_EQ(Lumsar::OnReceive(1, received.data(), 35, object), 0);
  EXPECT_TRUE(log.waitFor(info("PostEventToSpice: Leave!")));
  EXPECT_EQ(log.takeElsewhere().at(1),
            warning("[PostEventToSpice] Post event function is NULL! Ignore this post!"));
  log.clear();
}

TEST_F(Exchange, TokenIsStoredAndReturned) {
  for (int i = 0; i < 50; ++i) {
    const TokenWindow window;
    const unsigned short token = object->GenerateToken();
    EXPECT_EQ(token, object->m_token);
    EXPECT_LT(token, 10000);
    EXPECT_TRUE(window.contains(token)) << token;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

TEST_F(Exchange, RdpHelloRenewsTheTokenEvenUnsent) {
  object->m_token = 60000;
  object->m_channelOpened = true;
  object->RdpSendHello();
  EXPECT_LT(object->m_token, 10000);
  EXPECT_FALSE(object->m_channelOpened);
  EXPECT_EQ(log.take(), (Lines{info("RdpSendHello: Enter!"),
                               critical("RdpSendHello: RDP send data callback is NULL!!!"),
                               info("RdpSendHello: Leave!")}));
}

TEST_F(LooseExchange, EveryCommandReleasesTheMutex) {
  startSpice();
  ipc.sendResults = {0, 5};
  int size = 0;
  for (const char* command :
       {R"({"command":"unshareall"})", R"({"command":"unshareall"})", "{}", "no",
        R"({"command":"x"})", R"({"command":"share"})", R"({"command":"list"})"}) {
    object->HandleCommand(command, nullptr, size);
    ASSERT_TRUE(object->m_mutex.tryLock()) << command;
    object->m_mutex.unlock();
  }
  ipc.connected = false;
  object->HandleCommand("{}", nullptr, size);
  ASSERT_TRUE(object->m_mutex.tryLock());
  object->m_mutex.unlock();
}

TEST_F(LooseExchange, CommandHoldsTheMutexFromTheConnectionCheckOn) {
  startSpice();
  Lines locked;
  ipc.duringCall = [&](const std::string& call) {
    if (!object->m_mutex.tryLock()) {
      locked.push_back(call);
    } else {
      object->m_mutex.unlock();
    }
  };
  int size = 0;
  object->HandleCommand(R"({"command":"unshareall"})", nullptr, size);
  object->HandleCommand(R"({"command":"list"})", nullptr, size);
  EXPECT_EQ(locked, (Lines{"IsConnected", sendOf(5, R"({"command":"unshareall"})"), "IsConnected",
                           listRequest(0)}));
}

}  // namespace
}  // namespace lumsar::test
