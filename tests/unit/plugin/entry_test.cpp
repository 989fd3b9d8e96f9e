// What the nine functions leave in the object, when they set its flags, and what they wait for.
// Calls the exports of the same library that the class is linked from.
#include <chrono>
#include <cstring>
#include <future>

#include "support/eventually.h"
#include "unit/plugin/inside_test.h"

namespace lumsar::test {
namespace {

class Entry : public InsideTest {
 protected:
  // Runs `call` on another thread while this one holds the object's mutex; true if it returned.
  template <class Call>
  bool returnsWhileLocked(Call call) {
    object->m_mutex.lock();
    auto done = std::async(std::launch::async, call);
    const bool returned = done.wait_for(kTimeout) == std::future_status::ready;
    object->m_mutex.unlock();
    done.wait();
    return returned;
  }
};

using LooseEntry = Loose<Entry>;
using LooseEntryOverSpice = OverSpice<LooseEntry>;

TEST_F(LooseEntry, FailedInitKeepsTheCallablesAndStoresNoText) {
  EXPECT_EQ(spiceInit(configFor("nowhere"), "vm-8"), 1);
  EXPECT_TRUE(object->m_spiceSendFunc);
  EXPECT_TRUE(object->m_spicePostEventFunc);
  EXPECT_EQ(object->m_vmId, "");
  EXPECT_EQ(object->m_ipcName, "");
  EXPECT_EQ(object->m_configJson, "");
  EXPECT_TRUE(object->m_policyJson.isNull());
}

TEST_F(LooseEntry, FailedRdpInitKeepsTheFunctionAndStoresNoText) {
  ASSERT_EQ(chdir("/"), 0);
  EXPECT_EQ(rdpInit("vm-8"), 1);
  EXPECT_EQ(object->m_rdpSendFunc, &HostRecord::rdpSend);
  EXPECT_EQ(object->m_dataChannel, DATA_CHANNEL_RDP);
  EXPECT_EQ(object->m_vmId, "");
  EXPECT_EQ(object->m_ipcName, "");
  EXPECT_EQ(object->m_configJson, "");
}

TEST_F(LooseEntry, InitWithOneCallableStoresNeither) {
  EXPECT_EQ(plugin.Init(host.sendFunc(), {}, "vm-7", kConfig), 2);
  EXPECT_FALSE(object->m_spiceSendFunc);
  EXPECT_EQ(plugin.Init({}, host.postEventFunc(), "vm-7", kConfig), 2);
  EXPECT_FALSE(object->m_spicePostEventFunc);
}

void noEvents(RedirEvent /*event*/, char* /*data*/, int /*length*/) {}

TEST_F(Entry, RdpInitForgetsAnEventFunction) {
  object->m_rdpPostEventFunc = noEvents;
  startRdp();
  EXPECT_EQ(object->m_rdpPostEventFunc, nullptr);
}

TEST_F(LooseEntry, RdpInitLoadsFromItsOwnDirectoryWhateverTheConfigurationSays) {
  object->m_defaultConfig = R"({"ipc_name":"svc","relative_path":"./lib"})";
  EXPECT_EQ(rdpInit(), 0);
  EXPECT_EQ(object->m_ipcName, "svc");
  EXPECT_TRUE(isLibraryLoaded("./Device Redirect"));
  const Lines lines = log.take();
  EXPECT_NE(std::find(lines.begin(), lines.end(), useLine("svc", "./Device Redirect")),
            lines.end());
}

TEST_F(LooseEntry, RdpInitReadsNoSettingsFromAnEmptyText) {
  object->m_defaultConfig = "";
  EXPECT_EQ(rdpInit(), 0);
  EXPECT_EQ(
      log.take(),
      concat({{info("[RdpInit] Enter!"), info("[RdpInit] vm id[vm-7]"),
               info("[RdpInit] ====== config json[]"), useLine("lumsar", "./Device Redirect")},
              objectInitLines("./Device Redirect"),
              {warning("[SetConfigAndPolicy][717] >>>>Lumsar configuration is NULL!!!<<<<\n"),
               info(R"(Connect: Try to connect ipc: "lumsar")"),
               info(R"([RdpInit] Connect to  "lumsar"  SUCCESS!)"), info("[RdpInit] Leave!")}}));
}

TEST_F(LooseEntryOverSpice, SpiceChannelOpensOnlyAfterTheHello) {
  bool openWhileSending = true;
  object->m_spiceSendFunc = [&](unsigned char*, int) {
    openWhileSending = object->m_channelOpened;
    return 0;
  };
  plugin.Event(0);
  EXPECT_FALSE(openWhileSending);
  EXPECT_TRUE(object->m_channelOpened);
}

bool rdpOpenWhileSending = true;
int noteRdpFlag(unsigned char* /*data*/, int /*length*/) {
  rdpOpenWhileSending = Lumsar::m_instance->m_channelOpened;
  return 0;
}

TEST_F(LooseEntry, RdpChannelOpensOnlyAfterTheHello) {
  startRdp();
  object->m_rdpSendFunc = noteRdpFlag;
  handle(message(3));
  EXPECT_FALSE(rdpOpenWhileSending);
  EXPECT_TRUE(object->m_channelOpened);
}

// A host may encrypt in place.
int wipe(unsigned char* data, int length) {
  std::memset(data, 0xFF, static_cast<std::size_t>(length));
  return 0;
}

TEST_F(Entry, SpiceHelloIsLoggedAsItWasMade) {
  startSpice();
  object->m_spiceSendFunc = wipe;
  plugin.Event(0);
  EXPECT_EQ(log.take(), (Lines{info("Event: Spice channel is Opened!"),
                               info("Event: Send hello to remote VM! Token: " +
                                    std::to_string(object->m_token) + " , Version[ 1 . 1 ]")}));
}

TEST_F(Entry, RdpHelloIsLoggedAsItWasMade) {
  startRdp();
  object->m_rdpSendFunc = wipe;
  object->RdpSendHello();
  EXPECT_EQ(log.take(), rdpHelloLines(0, object->m_token));
}

TEST_F(LooseEntry, HandlerChangesNoByte) {
  startRdp();
  const unsigned int token = openRdpChannel();
  for (Bytes bytes : {message(0, le16(token) + le16(3)), message(1, "data"), message(2), message(3),
                      message(77)}) {
    const Bytes before = bytes;
    plugin.Handler(bytes.data(), static_cast<int>(bytes.size()));
    EXPECT_EQ(bytes, before);
  }
}

TEST_F(Entry, ClosedChannelIsToldBeforeAnUnknownOne) {
  startSpice();
  object->m_dataChannel = 7;
  EXPECT_EQ(ipc.receive(message(6)), 30);
  EXPECT_EQ(log.take(), Lines{critical("OnReceive: spice channel is NOT opened!")});
}

TEST_F(LooseEntryOverSpice, OnlyCommandsAndTeardownWaitForTheMutex) {
  EXPECT_TRUE(returnsWhileLocked([&] { plugin.Event(0); }));
  EXPECT_TRUE(returnsWhileLocked([&] { plugin.Event(1); }));
  EXPECT_TRUE(returnsWhileLocked([&] { plugin.RdpEvent(0); }));
  EXPECT_TRUE(returnsWhileLocked([&] { plugin.RdpEvent(1); }));
  EXPECT_TRUE(returnsWhileLocked([&] { handle(message(1, "data")); }));
  EXPECT_TRUE(returnsWhileLocked([&] { handle(message(3)); }));
  EXPECT_TRUE(returnsWhileLocked([&] { EXPECT_EQ(plugin.ShareAll(1), 0); }));
  EXPECT_TRUE(returnsWhileLocked([&] { EXPECT_EQ(spiceInit(), 17); }));
  EXPECT_TRUE(returnsWhileLocked([&] { EXPECT_EQ(rdpInit(), 17); }));
}

TEST_F(LooseEntryOverSpice, CommandIsLoggedBeforeItWaits) {
  const std::string command = R"({"command":"unshareall"})";
  object->m_mutex.lock();
  std::thread other([&] { EXPECT_EQ(ctrl(command), 0); });
  EXPECT_TRUE(log.waitFor(commandLines(command).back()));
  EXPECT_EQ(log.take(), concat({{debug("Ctrl: Enter!")}, commandLines(command)}));
  EXPECT_EQ(ipc.take(), Lines{}) << "nothing is asked before the lock";
  object->m_mutex.unlock();
  other.join();
}

}  // namespace
}  // namespace lumsar::test
