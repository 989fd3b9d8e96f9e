// Binding the IPC library at run time: paths, missing file, missing symbols, unloading.
// Drives the built plug-in through Init; the libraries are variants of ipc_stub/stub.cpp.
#include <dlfcn.h>

#include <algorithm>
#include <filesystem>

#include "lumsar/relative_path.h"
#include "support/plugin/plugin_test.h"

namespace lumsar::test {
namespace {

class LibraryBinding : public PluginTest {
 protected:
  // The lines of the object's own initialisation, after those of the settings.
  Lines objectLines(const std::string& config, int status) {
    EXPECT_EQ(spiceInit(config), status);
    const Lines lines = log.take();
    const auto begin = std::ranges::find(lines, info("Lumsar::Init: Enter!"));
    const auto end = std::find_if(begin, lines.end(), [](const std::string& line) {
      return line.ends_with("Lumsar::Init: Leave!") || line.ends_with("initialize failed!");
    });
    return {begin, end};
  }
  static Lines failure(const std::string& dir, const Lines& reason) {
    return concat(
        {{info("Lumsar::Init: Enter!"), info("lib path: " + inQuotes(dir + "/libvdi_ipc.so"))},
         reason,
         {critical("LoadControllerLibrary for lib: " + inQuotes(dir) + " failed!")}});
  }
  static Lines notLoadable(const std::string& dir) {
    return failure(dir, {warning("LoadControllerLibrary: >>>>load lib[" + dir +
                                 "/libvdi_ipc.so] failed!<<<<\n")});
  }
  std::string app = applicationDir();
};

using LooseLibraryBinding = Loose<LibraryBinding>;

// What the loader says about a symbol that the library at `path` lacks.
std::string loaderText(const std::string& path, const char* symbol) {
  void* handle = dlopen(path.c_str(), RTLD_LAZY);
  dlsym(handle, symbol);
  const std::string text = dlerror();
  dlclose(handle);
  return text;
}

class MissingSymbol : public LibraryBinding, public testing::WithParamInterface<const char*> {};

TEST_P(MissingSymbol, FailsWithOneLineAndUnloads) {
  const std::string symbol = GetParam();
  const std::string dir = app + "/without_" + symbol;
  const std::string text = loaderText(dir + "/libvdi_ipc.so", GetParam());
  EXPECT_EQ(objectLines(configFor("without_" + symbol), 1),
            failure(dir, {warning("Load function for " + symbol + " failed! err: " + text)}));
  EXPECT_FALSE(isLibraryLoaded(dir));
  startSpice();
}

INSTANTIATE_TEST_SUITE_P(Symbols, MissingSymbol,
                         testing::Values("VDI_CreateIpcClient", "VDI_DestroyIpcClient",
                                         "VDI_ConnectIpcClient", "VDI_AsyncConnectIpcClient",
                                         "VDI_DisconnectIpcClient", "VDI_IsIpcClientConnected",
                                         "VDI_IpcClientSendData", "VDI_IpcClientSyncCall"),
                         [](const auto& symbol) { return std::string(symbol.param); });

TEST_F(LooseLibraryBinding, FirstMissingSymbolIsNamed) {
  const std::string dir = app + "/empty";
  const std::string text = loaderText(dir + "/libvdi_ipc.so", "VDI_CreateIpcClient");
  EXPECT_EQ(objectLines(configFor("empty"), 1),
            failure(dir, {warning("Load function for VDI_CreateIpcClient failed! err: " + text)}));
  EXPECT_FALSE(isLibraryLoaded(dir));
}

TEST_F(LibraryBinding, FileThatIsNoLibrary) {
  EXPECT_EQ(objectLines(configFor("broken"), 1), notLoadable(app + "/broken"));
}

TEST_F(LibraryBinding, NoFile) {
  EXPECT_EQ(objectLines(configFor("nowhere"), 1), notLoadable(app + "/nowhere"));
  startSpice();
}

TEST_F(LibraryBinding, NoSearchPathIsConsulted) {
  // From the start, for the loader reads it only then.
  ASSERT_TRUE(std::string(std::getenv("LD_LIBRARY_PATH")).starts_with(libraryDir()));
  EXPECT_EQ(objectLines(configFor("nowhere"), 1), notLoadable(app + "/nowhere"));
}

TEST_F(LooseLibraryBinding, SymbolsThatTheLibraryLacksItselfAreLookedUpOnlyWhenCalled) {
  EXPECT_EQ(spiceInit(configFor("unresolved")), 0);
}

TEST_F(LooseLibraryBinding, TrailingSlashStaysAndGivesTwo) {
  const std::string dir = libraryDir() + "/";
  EXPECT_EQ(
      objectLines(configFor("ipc/"), 0),
      (Lines{info("Lumsar::Init: Enter!"), info("lib path: " + inQuotes(dir + "/libvdi_ipc.so"))}));
}

// The plug-in itself is where the text of relative_path.h leads it.
class InstalledLibrary : public LooseLibraryBinding,
                         public testing::WithParamInterface<const char*> {};

TEST_P(InstalledLibrary, IsReachedByItsRelativePath) {
  std::string root = std::filesystem::temp_directory_path() / "lumsar-XXXXXX";
  ASSERT_NE(mkdtemp(root.data()), nullptr);
  const std::string dir = root + "/" + GetParam();
  std::filesystem::create_directories(std::filesystem::path(dir).parent_path());
  std::filesystem::create_directory_symlink(libraryDir(), dir);
  const std::string text = relativePathTo(dir);
  EXPECT_EQ(spiceInit(R"({"ipc_name":"svc","relative_path":")" + text + R"("})"), 0) << text;
  EXPECT_TRUE(isLibraryLoaded(dir));
  std::filesystem::remove_all(root);
}

INSTANTIATE_TEST_SUITE_P(Directories, InstalledLibrary,
                         testing::Values("lib/x86_64-linux-gnu/lumsar", "ends in a dot./lib",
                                         "two../dots./lib", "the last one.", ".hidden/lib"));

TEST(RelativePath, ClimbsOutOfTheApplicationsDirectory) {
  EXPECT_EQ(relativePathTo("/usr/lib/lumsar", "/usr/bin"), "/.../.../usr/lib/lumsar");
  EXPECT_EQ(relativePathTo("/usr/lib/lumsar/", "/usr/bin/"), "/.../.../usr/lib/lumsar");
  EXPECT_EQ(relativePathTo("/usr/./lib/x/../lumsar", "/usr/bin"), "/.../.../usr/lib/lumsar");
  EXPECT_EQ(relativePathTo("/opt/a./b", "/"), "/opt/a../b");
}

TEST_F(LooseLibraryBinding, PathIsUtf8) {
  const std::string dir = app + "/ipc-é";
  std::error_code exists;
  std::filesystem::create_directory_symlink("ipc", dir, exists);
  EXPECT_EQ(objectLines(configFor("ipc-é"), 0),
            (Lines{info("Lumsar::Init: Enter!"), info("lib path: \"" + dir + "/libvdi_ipc.so\"")}));
  EXPECT_TRUE(isLibraryLoaded(dir));
}

TEST_F(LooseLibraryBinding, UnloadedByDeInitAndLoadedAgainByInit) {
  startSpice();
  EXPECT_TRUE(isLibraryLoaded(libraryDir()));
  plugin.DeInit();
  EXPECT_FALSE(isLibraryLoaded(libraryDir()));
  forget();
  EXPECT_EQ(objectLines(kConfig, 0).size(), 2U);
  EXPECT_TRUE(isLibraryLoaded(libraryDir()));
}

TEST_F(LooseLibraryBinding, StaysLoadedWhenTheClientCannotBeMade) {
  ipc.makesClient = false;
  EXPECT_EQ(spiceInit(), 1);
  EXPECT_TRUE(isLibraryLoaded(libraryDir()));
  plugin.DeInit();
  EXPECT_TRUE(isLibraryLoaded(libraryDir())) << "an object that is not initialised unloads nothing";
  ipc.makesClient = true;
  startSpice();
  plugin.DeInit();
  EXPECT_TRUE(isLibraryLoaded(libraryDir())) << "the first reference is lost";
}

TEST_F(LooseLibraryBinding, ParametersHoldTheFourCallbacksAndTheObject) {
  startSpice();
  const IpcClientParams& params = ipc.paramsCopy;
  EXPECT_EQ(params.onConnect(3, params.userData), 0);
  EXPECT_EQ(log.take(), Lines{info("client id[ 3 ] connect success!")});
  EXPECT_EQ(params.onSend(3, params.userData), 0);
  EXPECT_EQ(log.take(), Lines{});
  Bytes received = message(7);
  EXPECT_EQ(params.onReceive(3, received.data(), 32, params.userData), 2);
  EXPECT_EQ(log.take(), Lines{warning("[OnReceive] >>>>Unknown IPC message type[7]<<<<")});
  EXPECT_EQ(params.onClose(3, 4, params.userData), 0);
  EXPECT_EQ(log.take().at(0), warning("Ipc connection disconnet!! connect id: 3 , error: 4"));
}

TEST_F(LibraryBinding, ParametersStayWhereTheyAre) {
  startSpice();
  const IpcClientParams* first = ipc.params;
  const auto* object = static_cast<const unsigned char*>(first->userData);
  const auto* record = reinterpret_cast<const unsigned char*>(first);
  EXPECT_GT(record, object) << "the record lives inside the object";
  EXPECT_LT(record, object + 4096);
  plugin.DeInit();
  startSpice();
  EXPECT_EQ(ipc.params, first);
}

struct NameCase {
  std::string given;
  std::string cut;
};

class ClientName : public LibraryBinding, public testing::WithParamInterface<NameCase> {};

TEST_P(ClientName, IsCutAfter31BytesAndPaddedWithZeros) {
  startSpice(kConfig, GetParam().given);
  std::string expected = GetParam().cut;
  expected.resize(32, '\0');
  const IpcClientParams& params = ipc.paramsCopy;
  EXPECT_EQ(std::string(params.clientName, sizeof params.clientName), expected);
}

const std::string kForty = "0123456789abcdefghijABCDEFGHIJ9876543210";

INSTANTIATE_TEST_SUITE_P(Lengths, ClientName,
                         testing::Values(NameCase{"v", "v"},
                                         NameCase{kForty.substr(0, 30), kForty.substr(0, 30)},
                                         NameCase{kForty.substr(0, 31), kForty.substr(0, 31)},
                                         NameCase{kForty.substr(0, 32), kForty.substr(0, 31)},
                                         NameCase{kForty, kForty.substr(0, 31)},
                                         NameCase{"012345678901234567890123456789é",
                                                  "012345678901234567890123456789\xC3"}));

TEST_F(LibraryBinding, ShorterNameLeavesNothingOfALongerOne) {
  startSpice(kConfig, kForty);
  plugin.DeInit();
  startSpice(kConfig, "vm");
  EXPECT_EQ(std::string(ipc.paramsCopy.clientName, 32), "vm" + std::string(30, '\0'));
}

}  // namespace
}  // namespace lumsar::test
