// Lumsar::Init and Uninit: what they log, bind, keep and release, and that they hold the mutex.
// The client's name is compared byte for byte, its last byte included.
#include "unit/plugin/inside_test.h"

namespace lumsar::test {
namespace {

using Lifecycle = InsideTest;
using LifecycleInitialized = Initialized<Lifecycle>;
using LooseLifecycle = Loose<Lifecycle>;

TEST_F(Lifecycle, InitBindsAndMakesTheClient) {
  EXPECT_TRUE(object->Init(libDir(), "vm-7"));
  EXPECT_EQ(log.take(), objectInitLines(libraryDir()));
  EXPECT_EQ(ipc.take(), Lines{"Create vm-7"});
  EXPECT_TRUE(object->m_initialized);
  EXPECT_NE(object->m_ipcClient, nullptr);
  EXPECT_NE(object->m_libraryHandle, nullptr);
}

TEST_F(LifecycleInitialized, InitFillsTheRecord) {
  const IpcClientParams& params = object->m_ipcClientParams;
  EXPECT_EQ(ipc.params, &params);
  EXPECT_EQ(params.onConnect, &Lumsar::OnConnect);
  EXPECT_EQ(params.onSend, &Lumsar::OnSend);
  EXPECT_EQ(params.onReceive, &Lumsar::OnReceive);
  EXPECT_EQ(params.onClose, &Lumsar::OnClose);
  EXPECT_EQ(params.userData, object);
  EXPECT_EQ(ipc.paramsCopy.userData, object) << "filled before the client is made";
}

TEST_F(LifecycleInitialized, InitTwiceKeepsTheFirstClient) {
  void* client = object->m_ipcClient;
  EXPECT_FALSE(object->Init("/nowhere", "vm-8"));
  EXPECT_EQ(log.take(), (Lines{info("Lumsar::Init: Enter!"), warning("Already initialized!")}));
  EXPECT_EQ(object->m_ipcClient, client);
  EXPECT_STREQ(object->m_ipcClientParams.clientName, "vm-7");
  EXPECT_TRUE(object->m_initialized);
}

TEST_F(Lifecycle, InitWithoutLibrary) {
  EXPECT_FALSE(object->Init("/nowhere", "vm-7"));
  EXPECT_EQ(
      log.take(),
      (Lines{info("Lumsar::Init: Enter!"), info(R"(lib path: "/nowhere/libvdi_ipc.so")"),
             warning("LoadControllerLibrary: >>>>load lib[/nowhere/libvdi_ipc.so] failed!<<<<\n"),
             critical(R"(LoadControllerLibrary for lib: "/nowhere" failed!)")}));
  EXPECT_FALSE(object->m_initialized);
  EXPECT_EQ(object->m_libraryHandle, nullptr);
  EXPECT_EQ(object->m_ipcClientParams.userData, nullptr) << "the record is filled only later";
}

TEST_F(Lifecycle, InitWithoutClientLeavesTheLibraryBound) {
  ipc.makesClient = false;
  EXPECT_FALSE(object->Init(libDir(), "vm-7"));
  EXPECT_EQ(log.take(), (Lines{info("Lumsar::Init: Enter!"),
                               info("lib path: " + inQuotes(libraryDir() + "/libvdi_ipc.so")),
                               critical("Create ipc client failed!")}));
  EXPECT_EQ(ipc.take(), Lines{"Create vm-7"});
  EXPECT_FALSE(object->m_initialized);
  EXPECT_EQ(object->m_ipcClient, nullptr);
  EXPECT_NE(object->m_libraryHandle, nullptr);
  object->Uninit();
  EXPECT_EQ(log.take(), (Lines{info("Lumsar::Uninit: Enter!"), warning("Not initialized!")}));
  EXPECT_NE(object->m_libraryHandle, nullptr);
  ipc.makesClient = true;
  initObject();
}

struct NameCase {
  int length;
  std::string stored;
};

class ClientName : public Loose<Lifecycle>, public testing::WithParamInterface<NameCase> {};

const std::string kAlphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmn";

TEST_P(ClientName, LeavesTheLastByteAsItWas) {
  const auto& [length, stored] = GetParam();
  std::fill_n(object->m_ipcClientParams.clientName, 32, '#');
  ASSERT_TRUE(object->Init(libDir(), QString::fromStdString(kAlphabet).left(length)));
  std::string expected = stored;
  expected.resize(31, '\0');
  EXPECT_EQ(std::string(object->m_ipcClientParams.clientName, 32), expected + '#');
}

INSTANTIATE_TEST_SUITE_P(Lengths, ClientName,
                         testing::Values(NameCase{0, "0"}, NameCase{1, "A"},
                                         NameCase{30, kAlphabet.substr(0, 30)},
                                         NameCase{31, kAlphabet.substr(0, 31)},
                                         NameCase{32, kAlphabet.substr(0, 31)},
                                         NameCase{40, kAlphabet.substr(0, 31)}));

TEST_F(LifecycleInitialized, UninitReleasesClientAndLibrary) {
  object->Uninit();
  EXPECT_EQ(log.take(), unloadLines());
  EXPECT_EQ(ipc.take(), Lines{"Destroy"}) << "it does not disconnect";
  EXPECT_FALSE(object->m_initialized);
  EXPECT_EQ(object->m_ipcClient, nullptr);
  EXPECT_EQ(object->m_libraryHandle, nullptr);
  EXPECT_FALSE(isLibraryLoaded(libraryDir()));
}

TEST_F(LooseLifecycle, LibraryIsStillThereWhenTheClientIsDestroyed) {
  initObject();
  bool loaded = false;
  bool hadClient = false;
  ipc.duringCall = [&](const std::string&) {
    loaded = isLibraryLoaded(libraryDir());
    hadClient = object->m_ipcClient != nullptr && object->m_initialized;
  };
  object->Uninit();
  EXPECT_TRUE(loaded);
  EXPECT_TRUE(hadClient);
}

TEST_F(LifecycleInitialized, UninitTwice) {
  object->Uninit();
  forget();
  object->Uninit();
  EXPECT_EQ(log.take(), (Lines{info("Lumsar::Uninit: Enter!"), warning("Not initialized!")}));
  EXPECT_TRUE(object->m_mutex.tryLock());
  object->m_mutex.unlock();
}

TEST_F(LifecycleInitialized, UninitWithoutClientLeavesTheLibrary) {
  object->m_ipcClient = nullptr;
  object->Uninit();
  EXPECT_EQ(log.take(), (Lines{info("Lumsar::Uninit: Enter!"), info("Lumsar::Uninit: Leave!")}));
  EXPECT_FALSE(object->m_initialized);
  EXPECT_NE(object->m_libraryHandle, nullptr);
  EXPECT_TRUE(isLibraryLoaded(libraryDir()));
}

TEST_F(LooseLifecycle, UninitKeepsEverythingElse) {
  startSpice();
  openSpiceChannel();
  object->UpdatePolicy(2, 13);
  object->m_dataChannel = 2;
  const std::uint16_t token = object->m_token;
  const QString policy = object->m_policyJson;
  object->Uninit();
  EXPECT_TRUE(object->m_spiceSendFunc);
  EXPECT_TRUE(object->m_spicePostEventFunc);
  EXPECT_EQ(object->m_vmId, "vm-7");
  EXPECT_EQ(object->m_ipcName, "svc");
  EXPECT_EQ(object->m_configJson.toStdString(), kConfig);
  EXPECT_EQ(object->m_policyJson, policy);
  EXPECT_EQ(object->m_token, token);
  EXPECT_TRUE(object->m_channelOpened);
  EXPECT_EQ(object->m_dataChannel, 2);
  EXPECT_EQ(object->m_vmVersionMajor, 2);
  EXPECT_EQ(object->m_vmVersionMinor, 13);
  EXPECT_NE(object->m_createIpcClient, nullptr);
  EXPECT_NE(object->m_ipcClientSyncCall, nullptr);
  EXPECT_STREQ(object->m_ipcClientParams.clientName, "vm-7");
}

TEST_F(LifecycleInitialized, InitAfterUninitMakesANewClient) {
  void* first = object->m_ipcClient;
  object->Uninit();
  forget();
  EXPECT_TRUE(object->Init(libDir(), "vm-8"));
  EXPECT_EQ(log.take(), objectInitLines(libraryDir()));
  EXPECT_EQ(ipc.take(), Lines{"Create vm-8"});
  EXPECT_NE(object->m_ipcClient, first);
}

TEST_F(LooseLifecycle, BothHoldTheMutex) {
  Lines locked;
  ipc.duringCall = [&](const std::string& call) {
    if (object->m_mutex.tryLock()) {
      object->m_mutex.unlock();
    } else {
      locked.push_back(call);
    }
  };
  object->Init(libDir(), "vm-7");
  object->Uninit();
  EXPECT_EQ(locked, (Lines{"Create vm-7", "Destroy"}));
  EXPECT_TRUE(object->m_mutex.tryLock());
  object->m_mutex.unlock();
}

TEST_F(LooseLifecycle, FailedInitReleasesTheMutex) {
  object->Init("/nowhere", "vm-7");
  ipc.makesClient = false;
  object->Init(libDir(), "vm-7");
  ipc.makesClient = true;
  object->Init(libDir(), "vm-7");
  object->Init(libDir(), "vm-7");
  EXPECT_TRUE(object->m_mutex.tryLock());
  object->m_mutex.unlock();
}

TEST_F(LooseLifecycle, TextsAreTakenByValue) {
  QString dir = libDir();
  QString name;
  EXPECT_TRUE(object->Init(dir, name));
  EXPECT_EQ(dir, libDir());
  EXPECT_TRUE(name.isEmpty());
}

}  // namespace
}  // namespace lumsar::test
