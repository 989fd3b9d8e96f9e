// The object as it is made: its one instance, default member values, their order, the destructor,
// the Qt object glue.
#include <QMetaObject>
#include <regex>

#include "unit/plugin/inside_test.h"

namespace lumsar::test {
namespace {

using Object = InsideTest;

TEST_F(FreshPluginTest, ObjectIsMadeOnceAndSaysWhenItWasCompiled) {
  EXPECT_EQ(Lumsar::m_instance, nullptr);
  Lumsar* object = Lumsar::GetInstance();
  ASSERT_NE(object, nullptr);
  EXPECT_EQ(Lumsar::m_instance, object);
  EXPECT_EQ(Lumsar::GetInstance(), object);
  const Lines lines = log.take();
  ASSERT_EQ(lines.size(), 1U);
  EXPECT_TRUE(std::regex_match(
      lines[0],
      std::regex(R"(info: Compile time:  [A-Z][a-z]{2} [ 1-3]\d \d{4} ,  \d{2}:\d{2}:\d{2})")))
      << lines[0];
}

TEST_F(FreshPluginTest, EntryPointsUseTheSameObject) {
  plugin.DeInit();
  ASSERT_NE(Lumsar::m_instance, nullptr);
  EXPECT_EQ(Lumsar::GetInstance(), Lumsar::m_instance);
  EXPECT_EQ(log.take().size(), 3U);
}

TEST_F(Object, CallablesAreEmpty) {
  EXPECT_FALSE(object->m_spiceSendFunc);
  EXPECT_FALSE(object->m_spicePostEventFunc);
  EXPECT_EQ(object->m_rdpSendFunc, nullptr);
  EXPECT_EQ(object->m_rdpPostEventFunc, nullptr);
}

TEST_F(Object, TextsAreEmptyAndThePolicyIsNull) {
  EXPECT_EQ(object->m_defaultConfig.toStdString(), kDefaultConfig);
  EXPECT_EQ(object->m_defaultConfig.size(), 200);
  for (const QString* text : {&object->m_ipcName, &object->m_configJson, &object->m_vmId}) {
    EXPECT_TRUE(text->isEmpty());
    EXPECT_FALSE(text->isNull());
  }
  EXPECT_TRUE(object->m_policyJson.isNull());
  EXPECT_TRUE(object->m_spareBytes.isEmpty());
}

TEST_F(Object, ThereIsNoLibraryAndNoClient) {
  EXPECT_EQ(object->m_ipcClient, nullptr);
  EXPECT_EQ(object->m_libraryHandle, nullptr);
  EXPECT_EQ(object->m_createIpcClient, nullptr);
  EXPECT_EQ(object->m_destroyIpcClient, nullptr);
  EXPECT_EQ(object->m_connectIpcClient, nullptr);
  EXPECT_EQ(object->m_asyncConnectIpcClient, nullptr);
  EXPECT_EQ(object->m_disconnectIpcClient, nullptr);
  EXPECT_EQ(object->m_isIpcClientConnected, nullptr);
  EXPECT_EQ(object->m_ipcClientSendData, nullptr);
  EXPECT_EQ(object->m_ipcClientSyncCall, nullptr);
  const auto* record = reinterpret_cast<const unsigned char*>(&object->m_ipcClientParams);
  EXPECT_EQ(Bytes(record, record + 72), Bytes(72));
}

TEST_F(Object, FlagsAndNumbers) {
  EXPECT_FALSE(object->m_initialized);
  EXPECT_FALSE(object->m_channelOpened);
  EXPECT_FALSE(object->m_replyArrived);
  EXPECT_FALSE(object->m_keepAliveRunning);
  EXPECT_FALSE(object->m_keepAliveThread.joinable());
  EXPECT_EQ(object->m_token, 0);
  EXPECT_EQ(object->m_vmVersionMajor, 1);
  EXPECT_EQ(object->m_vmVersionMinor, 0);
  EXPECT_EQ(object->m_dataChannel, 0);
  EXPECT_EQ(sizeof object->m_token, 2U);
  EXPECT_EQ(sizeof object->m_dataChannel, 4U);
}

TEST_F(Object, MutexIsUnlockedAndNotRecursive) {
  EXPECT_FALSE(object->m_mutex.isRecursive());
  EXPECT_TRUE(object->m_mutex.tryLock());
  EXPECT_FALSE(object->m_mutex.tryLock());
  object->m_mutex.unlock();
}

TEST_F(Object, MembersStandInTheirOrder) {
  const std::vector<const void*> members = {&object->m_spiceSendFunc,
                                            &object->m_spicePostEventFunc,
                                            &object->m_defaultConfig,
                                            &object->m_rdpSendFunc,
                                            &object->m_rdpPostEventFunc,
                                            &object->m_ipcClient,
                                            &object->m_ipcClientParams,
                                            &object->m_initialized,
                                            &object->m_channelOpened,
                                            &object->m_replyArrived,
                                            &object->m_ipcName,
                                            &object->m_configJson,
                                            &object->m_policyJson,
                                            &object->m_spareBytes,
                                            &object->m_createIpcClient,
                                            &object->m_destroyIpcClient,
                                            &object->m_connectIpcClient,
                                            &object->m_asyncConnectIpcClient,
                                            &object->m_disconnectIpcClient,
                                            &object->m_isIpcClientConnected,
                                            &object->m_ipcClientSendData,
                                            &object->m_ipcClientSyncCall,
                                            &object->m_libraryHandle,
                                            &object->m_token,
                                            &object->m_vmId,
                                            &object->m_vmVersionMajor,
                                            &object->m_vmVersionMinor,
                                            &object->m_dataChannel,
                                            &object->m_mutex,
                                            &object->m_keepAliveThread,
                                            &object->m_keepAliveRunning};
  EXPECT_EQ(members.size(), 31U);
  EXPECT_TRUE(std::is_sorted(members.begin(), members.end()));
  EXPECT_GT(members.front(), static_cast<const void*>(object));
}

TEST_F(Object, DestructorTouchesNeitherClientNorLibrary) {
  auto* other = new Lumsar;
  ASSERT_TRUE(other->Init(libDir(), "vm-7"));
  forget();
  delete other;
  EXPECT_EQ(log.take(), Lines{});
  EXPECT_EQ(ipc.take(), Lines{});
  EXPECT_TRUE(isLibraryLoaded(libraryDir()));
}

TEST_F(Object, HasNoParent) {
  EXPECT_EQ(object->parent(), nullptr);
}

TEST_F(Object, MetaObjectDeclaresNothingOfItsOwn) {
  const QMetaObject* meta = object->metaObject();
  EXPECT_EQ(meta, &Lumsar::staticMetaObject);
  EXPECT_STREQ(meta->className(), "Lumsar");
  EXPECT_EQ(meta->superClass(), &QObject::staticMetaObject);
  EXPECT_EQ(meta->methodCount(), meta->methodOffset());
  EXPECT_EQ(meta->propertyCount(), meta->propertyOffset());
  EXPECT_EQ(meta->enumeratorCount(), meta->enumeratorOffset());
}

TEST_F(Object, MetaCast) {
  EXPECT_EQ(object->qt_metacast("Lumsar"), object);
  EXPECT_EQ(object->qt_metacast("QObject"), object);
  EXPECT_EQ(object->qt_metacast("lumsar"), nullptr);
  EXPECT_EQ(object->qt_metacast(""), nullptr);
  EXPECT_EQ(object->qt_metacast(nullptr), nullptr);
  EXPECT_EQ(qobject_cast<Lumsar*>(static_cast<QObject*>(object)), object);
}

TEST_F(Object, MetaCallIsThatOfQObject) {
  void* arguments[2] = {nullptr, nullptr};
  for (const int id : {-1, 100, 1000}) {
    EXPECT_EQ(object->qt_metacall(QMetaObject::InvokeMetaMethod, id, arguments),
              object->QObject::qt_metacall(QMetaObject::InvokeMetaMethod, id, arguments));
  }
}

}  // namespace
}  // namespace lumsar::test
