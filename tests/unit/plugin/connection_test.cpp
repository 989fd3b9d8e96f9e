// Connect, AsyncConnect, Disconnect and IsIpcConnected by themselves: codes, lines, library calls,
// and which of them takes the mutex.
#include "unit/plugin/inside_test.h"

namespace lumsar::test {
namespace {

class Connection : public InsideTest {
 protected:
  bool isLocked() {
    if (!object->m_mutex.tryLock()) return true;
    object->m_mutex.unlock();
    return false;
  }
  // Which calls of the library come with the mutex held.
  void watchMutex() {
    ipc.duringCall = [this](const std::string& call) {
      m_calls.push_back(call + (isLocked() ? " locked" : " free"));
    };
  }
  Lines m_calls;
};

using ConnectionInitialized = Initialized<Connection>;

using LooseConnection = Initialized<Loose<Connection>>;

TEST_F(Connection, WithoutAClient) {
  EXPECT_EQ(object->Connect(), 16);
  EXPECT_EQ(log.take(), Lines{warning("Connect: client is NULL!")});
  EXPECT_EQ(object->AsyncConnect("svc"), 16);
  EXPECT_EQ(log.take(), Lines{warning("AsyncConnect: client is NULL!")});
  EXPECT_EQ(object->Disconnect(), 16);
  EXPECT_EQ(log.take(), Lines{warning("Disconnect: client is NULL!")});
  EXPECT_FALSE(object->IsIpcConnected());
  EXPECT_EQ(log.take(), Lines{warning("IsIpcConnected: client is NULL!")});
  EXPECT_FALSE(isLocked());
}

TEST_F(ConnectionInitialized, AfterUninitThereIsNoClient) {
  object->Uninit();
  forget();
  EXPECT_EQ(object->Connect(), 16);
  EXPECT_EQ(object->AsyncConnect("svc"), 16);
  EXPECT_EQ(object->Disconnect(), 16);
  EXPECT_FALSE(object->IsIpcConnected());
  EXPECT_EQ(log.take().size(), 4U);
}

TEST_F(ConnectionInitialized, ConnectUsesTheStoredName) {
  object->m_ipcName = "camera é";
  EXPECT_EQ(object->Connect(), 0);
  EXPECT_EQ(log.take(), Lines{info("Connect: Try to connect ipc: \"camera é\"")});
  EXPECT_EQ(ipc.take(), (Lines{"IsConnected", "Connect camera é"}));
}

TEST_F(ConnectionInitialized, ConnectTwice) {
  EXPECT_EQ(object->Connect(), 0);
  EXPECT_EQ(object->Connect(), 34);
  EXPECT_EQ(log.take(), (Lines{info(R"(Connect: Try to connect ipc: "")"),
                               warning("Connect: Aready connected with IPC server!")}));
  EXPECT_EQ(ipc.take(), (Lines{"IsConnected", "Connect ", "IsConnected"}));
}

TEST_F(LooseConnection, ConnectPassesTheLibrarysCodeOn) {
  for (const int code : {1, -7, 16, 34}) {
    ipc.connectResult = code;
    EXPECT_EQ(object->Connect(), code);
    EXPECT_EQ(log.take(), Lines{info(R"(Connect: Try to connect ipc: "")")});
  }
}

TEST_F(ConnectionInitialized, AsyncConnectAsksForItsOwnName) {
  object->m_ipcName = "svc";
  ipc.connected = true;
  EXPECT_EQ(object->AsyncConnect("öther"), 0);
  EXPECT_EQ(ipc.take(), Lines{"AsyncConnect öther"});
  EXPECT_EQ(object->m_ipcName, "svc");
  ipc.asyncConnectResult = -9;
  EXPECT_EQ(object->AsyncConnect(""), -9);
  EXPECT_EQ(ipc.take(), Lines{"AsyncConnect "});
}

TEST_F(ConnectionInitialized, DisconnectKeepsTheClient) {
  ipc.connected = true;
  void* client = object->m_ipcClient;
  EXPECT_EQ(object->Disconnect(), 0);
  EXPECT_EQ(ipc.take(), (Lines{"IsConnected", "Disconnect"}));
  EXPECT_EQ(object->m_ipcClient, client);
  EXPECT_TRUE(object->m_initialized);
}

TEST_F(ConnectionInitialized, DisconnectWhileNotConnected) {
  EXPECT_EQ(object->Disconnect(), 31);
  EXPECT_EQ(log.take(), Lines{warning("Connect: Client is NOT connected with IPC server!")});
  EXPECT_EQ(ipc.take(), Lines{"IsConnected"});
  EXPECT_FALSE(isLocked());
}

TEST_F(ConnectionInitialized, DisconnectPassesTheLibrarysCodeOn) {
  ipc.connected = true;
  ipc.disconnectResult = -3;
  EXPECT_EQ(object->Disconnect(), -3);
  EXPECT_EQ(ipc.take(), (Lines{"IsConnected", "Disconnect"}));
  EXPECT_FALSE(isLocked());
}

TEST_F(ConnectionInitialized, IsIpcConnectedAsksTheLibraryEachTime) {
  EXPECT_FALSE(object->IsIpcConnected());
  ipc.connected = true;
  EXPECT_TRUE(object->IsIpcConnected());
  EXPECT_EQ(ipc.take(), (Lines{"IsConnected", "IsConnected"}));
}

TEST_F(LooseConnection, OnlyDisconnectHoldsTheMutex) {
  watchMutex();
  object->Connect();
  object->AsyncConnect("svc");
  object->IsIpcConnected();
  EXPECT_EQ(m_calls, (Lines{"IsConnected free", "Connect  free", "AsyncConnect svc free",
                            "IsConnected free"}));
  m_calls.clear();
  object->Disconnect();
  EXPECT_EQ(m_calls, (Lines{"IsConnected locked", "Disconnect locked"}));
}

TEST_F(Connection, OnConnectNeedsNoObject) {
  EXPECT_EQ(Lumsar::OnConnect(5, nullptr), 0);
  EXPECT_EQ(log.take(), Lines{info("client id[ 5 ] connect success!")});
  EXPECT_EQ(Lumsar::OnSend(5, nullptr), 0);
}

TEST_F(Connection, OnCloseWithoutCallables) {
  EXPECT_EQ(Lumsar::OnClose(5, -2, object), 0);
  EXPECT_EQ(log.take(), (Lines{warning("Ipc connection disconnet!! connect id: 5 , error: -2"),
                               info("UnredirectAllVCams: send cmd to vm!")}));
}

TEST_F(Connection, OnCloseWithoutEventFunctionStillTellsTheVm) {
  object->m_spiceSendFunc = host.sendFunc();
  EXPECT_EQ(Lumsar::OnClose(5, 0, object), 0);
  EXPECT_EQ(host.takeBytes(), std::vector<Bytes>{message(2)});
  log.clear();
}

TEST_F(Connection, OnCloseWithoutSendFunctionStillPosts) {
  object->m_spicePostEventFunc = host.postEventFunc();
  EXPECT_EQ(Lumsar::OnClose(5, 0, object), 0);
  EXPECT_EQ(host.takeEvents(1).at(0).event, 3);
  log.clear();
}

}  // namespace
}  // namespace lumsar::test
