// LoadControllerLibrary and UnloadControllerLibrary by themselves: which pointers are bound, which
// are kept after a failure.
#include <dlfcn.h>

#include "unit/plugin/inside_test.h"

namespace lumsar::test {
namespace {

const std::vector<std::string> kSymbols = {"VDI_CreateIpcClient",     "VDI_DestroyIpcClient",
                                           "VDI_ConnectIpcClient",    "VDI_AsyncConnectIpcClient",
                                           "VDI_DisconnectIpcClient", "VDI_IsIpcClientConnected",
                                           "VDI_IpcClientSendData",   "VDI_IpcClientSyncCall"};

class Binding : public InsideTest {
 protected:
  std::vector<void*> pointers() const {
    const auto plain = [](auto* function) { return reinterpret_cast<void*>(function); };
    return {plain(object->m_createIpcClient),     plain(object->m_destroyIpcClient),
            plain(object->m_connectIpcClient),    plain(object->m_asyncConnectIpcClient),
            plain(object->m_disconnectIpcClient), plain(object->m_isIpcClientConnected),
            plain(object->m_ipcClientSendData),   plain(object->m_ipcClientSyncCall)};
  }
  static QString variant(const std::string& name) {
    return QString::fromStdString(applicationDir() + "/" + name);
  }
};

TEST_F(Binding, BindsEachSymbolToItsMember) {
  EXPECT_TRUE(object->LoadControllerLibrary(libDir()));
  EXPECT_EQ(log.take(), Lines{info("lib path: " + inQuotes(libraryDir() + "/libvdi_ipc.so"))});
  ASSERT_NE(object->m_libraryHandle, nullptr);
  for (std::size_t i = 0; i < kSymbols.size(); ++i) {
    EXPECT_EQ(pointers()[i], dlsym(object->m_libraryHandle, kSymbols[i].c_str())) << kSymbols[i];
  }
}

TEST_F(Binding, UnloadClosesTheLibraryAndKeepsThePointers) {
  ASSERT_TRUE(object->LoadControllerLibrary(libDir()));
  log.clear();
  const std::vector<void*> before = pointers();
  object->UnloadControllerLibrary();
  EXPECT_EQ(object->m_libraryHandle, nullptr);
  EXPECT_FALSE(isLibraryLoaded(libraryDir()));
  EXPECT_EQ(pointers(), before);
  object->UnloadControllerLibrary();
  EXPECT_EQ(object->m_libraryHandle, nullptr);
}

TEST_F(Binding, UnloadWithoutALoadDoesNothing) {
  object->UnloadControllerLibrary();
  EXPECT_EQ(object->m_libraryHandle, nullptr);
}

TEST_F(Binding, UnloadTwiceLeavesSomebodyElsesReference) {
  ASSERT_TRUE(object->LoadControllerLibrary(libDir()));
  void* own = dlopen((libraryDir() + "/libvdi_ipc.so").c_str(), RTLD_LAZY);
  object->UnloadControllerLibrary();
  object->UnloadControllerLibrary();
  EXPECT_TRUE(isLibraryLoaded(libraryDir()));
  dlclose(own);
  EXPECT_FALSE(isLibraryLoaded(libraryDir()));
  log.clear();
}

class MissingSymbol : public Binding, public testing::WithParamInterface<std::size_t> {};

TEST_P(MissingSymbol, FreshObjectHasOnlyThoseBefore) {
  EXPECT_FALSE(object->LoadControllerLibrary(variant("without_" + kSymbols[GetParam()])));
  EXPECT_EQ(object->m_libraryHandle, nullptr);
  const std::vector<void*> bound = pointers();
  for (std::size_t i = 0; i < bound.size(); ++i) {
    EXPECT_EQ(bound[i] != nullptr, i < GetParam()) << kSymbols[i];
  }
  log.clear();
}

TEST_P(MissingSymbol, ThoseAfterKeepWhatTheyHeld) {
  ASSERT_TRUE(object->LoadControllerLibrary(libDir()));
  const std::vector<void*> before = pointers();
  EXPECT_FALSE(object->LoadControllerLibrary(variant("without_" + kSymbols[GetParam()])));
  EXPECT_EQ(object->m_libraryHandle, nullptr);
  const std::vector<void*> after = pointers();
  for (std::size_t i = 0; i < after.size(); ++i) {
    void* expected = i == GetParam() ? nullptr : before[i];
    EXPECT_EQ(after[i] == expected, i >= GetParam()) << kSymbols[i];
  }
  log.clear();
}

INSTANTIATE_TEST_SUITE_P(Symbols, MissingSymbol, testing::Range<std::size_t>(0, 8));

TEST_F(Binding, MissingFileClearsTheHandleOnly) {
  ASSERT_TRUE(object->LoadControllerLibrary(libDir()));
  const std::vector<void*> before = pointers();
  EXPECT_FALSE(object->LoadControllerLibrary("/nowhere"));
  EXPECT_EQ(object->m_libraryHandle, nullptr);
  EXPECT_EQ(pointers(), before);
  log.clear();
}

TEST_F(Binding, EmptyDirectoryIsTheRoot) {
  EXPECT_FALSE(object->LoadControllerLibrary(""));
  EXPECT_EQ(log.take(),
            (Lines{info(R"(lib path: "/libvdi_ipc.so")"),
                   warning("LoadControllerLibrary: >>>>load lib[/libvdi_ipc.so] failed!<<<<\n")}));
}

}  // namespace
}  // namespace lumsar::test
