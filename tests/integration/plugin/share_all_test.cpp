// ShareAll, called by the host itself: checks, status codes, what the service gets.
// Its call from Handler is in handler_test.cpp.
#include "support/plugin/plugin_test.h"

namespace lumsar::test {
namespace {

using ShareAll = PluginTest;
using LooseShareAll = Loose<ShareAll>;

std::string sessionText(int id) {
  return R"({"sessionId":)" + std::to_string(id) + R"(,"vmId":"vm-7"})";
}

Lines sharedLines(int id, const Lines& beforeLeave = {}) {
  return concat(
      {{info("[ShareAll] Enter! session id: " + std::to_string(id)), info("[RedirectAll] Enter!"),
        info("Json cmd:\n " + inQuotes(sessionText(id))), info("Send RDR ALL command to service!")},
       beforeLeave,
       {info("[RedirectAll] Leave!"), info("[ShareAll] Leave!")}});
}

class ShareAllSession : public OverRdp<ShareAll>, public testing::WithParamInterface<int> {};

TEST_P(ShareAllSession, IsSentToTheService) {
  EXPECT_EQ(plugin.ShareAll(GetParam()), 0);
  EXPECT_EQ(log.take(), sharedLines(GetParam()));
  EXPECT_EQ(ipc.take(), Lines{sendOf(9, sessionText(GetParam()))});
}

INSTANTIATE_TEST_SUITE_P(Ids, ShareAllSession, testing::Values(0, 1, 3, 65536, 2147483647));

class NegativeSession : public OverRdp<ShareAll>, public testing::WithParamInterface<int> {};

TEST_P(NegativeSession, IsRefused) {
  EXPECT_EQ(plugin.ShareAll(GetParam()), 2);
  const std::string id = std::to_string(GetParam());
  EXPECT_EQ(log.take(), (Lines{info("[ShareAll] Enter! session id: " + id),
                               warning("[ShareAll] >>>>Invalid session id: " + id + " <<<<\n")}));
}

INSTANTIATE_TEST_SUITE_P(Ids, NegativeSession, testing::Values(-1, -2147483647 - 1));

TEST_F(FreshPluginTest, NegativeSessionIsRefusedBeforeTheObjectIsMade) {
  EXPECT_EQ(plugin.ShareAll(-1), 2);
  EXPECT_EQ(log.take().size(), 2U);
}

TEST_F(ShareAll, BeforeInitializationIs16) {
  EXPECT_EQ(plugin.ShareAll(0), 16);
  EXPECT_EQ(log.take(), (Lines{info("[ShareAll] Enter! session id: 0"),
                               critical("[ShareAll] >>>>lumsar NOT initialized!<<<<\n")}));
}

TEST_F(LooseShareAll, AfterDeInitializationIs16) {
  startRdp();
  plugin.RdpDeInit();
  forget();
  EXPECT_EQ(plugin.ShareAll(0), 16);
}

TEST_F(ShareAll, WorksForASpiceHostToo) {
  startSpice();
  EXPECT_EQ(plugin.ShareAll(4), 0);
  EXPECT_EQ(log.take(), sharedLines(4));
  EXPECT_EQ(ipc.take(), Lines{sendOf(9, sessionText(4))});
}

TEST_F(ShareAll, DoesNotAskForAConnectionAndReturnsTheSendsError) {
  startRdp();
  ipc.connected = false;
  ipc.sendResults = {-12};
  EXPECT_EQ(plugin.ShareAll(0), -12);
  EXPECT_EQ(log.take(), sharedLines(0, {warning("Send ipc data failed! error:-12")}));
  EXPECT_EQ(ipc.take(), Lines{sendOf(9, sessionText(0))});
}

TEST_F(LooseShareAll, TakesNoLock) {
  startSpice();
  ipc.duringSend = [&] {
    ipc.duringSend = nullptr;
    EXPECT_EQ(plugin.ShareAll(1), 0);
  };
  EXPECT_EQ(ctrl(R"({"command":"unshareall"})"), 0);
  EXPECT_EQ(ipc.take().size(), 3U);
}

}  // namespace
}  // namespace lumsar::test
