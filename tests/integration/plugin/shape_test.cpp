// The built library's shape: SONAME, exports, nodelete, and that loading and unloading it is safe.
// Reads the file with the toolchain's nm and readelf.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "lumsar/plugin.h"
#include "support/text.h"

namespace lumsar::test {
namespace {

std::vector<std::string> run(const std::string& command) {
  FILE* pipe = popen((command + " 2>&1").c_str(), "r");
  std::string all;
  for (int c = fgetc(pipe); c != EOF; c = fgetc(pipe)) all += static_cast<char>(c);
  EXPECT_EQ(pclose(pipe), 0) << command;
  std::istringstream stream(all);
  std::vector<std::string> lines;
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

bool anyContains(const std::vector<std::string>& lines, const std::string& text) {
  return std::ranges::any_of(
      lines, [&](const std::string& line) { return line.find(text) != std::string::npos; });
}

std::vector<std::string> dynamicSection() {
  return run(std::string(LUMSAR_READELF) + " -dW '" LUMSAR_PLUGIN "'");
}

TEST(Shape, SonameIsVersioned) {
  EXPECT_TRUE(anyContains(dynamicSection(), "Library soname: [liblumsar.so.1]"));
}

TEST(Shape, IsNeverUnmapped) {
  EXPECT_TRUE(anyContains(dynamicSection(), "NODELETE"));
}

TEST(Shape, DoesNotNeedTheIpcLibrary) {
  EXPECT_FALSE(anyContains(dynamicSection(), "vdi_ipc"));
  EXPECT_TRUE(anyContains(dynamicSection(), "libQt5Core"));
}

TEST(Shape, NeedsQtCoreOnlyOfQt) {
  for (const std::string& line : dynamicSection()) {
    if (line.find("libQt") == std::string::npos) continue;
    EXPECT_NE(line.find("libQt5Core"), std::string::npos) << line;
  }
}

TEST(Shape, ExportsNineFunctionsAndOneClass) {
  const std::set<std::string> functions = {"Init",     "Event",   "Ctrl",     "DeInit",   "RdpInit",
                                           "RdpEvent", "Handler", "ShareAll", "RdpDeInit"};
  std::set<std::string> found;
  for (const std::string& line :
       run(std::string(LUMSAR_NM) + " -D --defined-only --format=posix '" LUMSAR_PLUGIN "'")) {
    std::istringstream fields(line);
    std::string name;
    std::string kind;
    fields >> name >> kind;
    if (functions.contains(name)) {
      EXPECT_EQ(kind, "T") << name;
      found.insert(name);
      continue;
    }
    const bool ofTheClass = name.starts_with("_ZN6Lumsar") || name.starts_with("_ZNK6Lumsar") ||
                            name == "_ZTV6Lumsar" || name == "_ZTI6Lumsar" || name == "_ZTS6Lumsar";
    EXPECT_TRUE(ofTheClass) << name;
  }
  EXPECT_EQ(found, functions);
}

TEST(Shape, ExportsTheClassWhole) {
  std::set<std::string> names;
  for (const std::string& line :
       run(std::string(LUMSAR_NM) + " -DC --defined-only '" LUMSAR_PLUGIN "'")) {
    names.insert(line.substr(std::min<std::size_t>(line.size(), 19)));
  }
  for (const char* name :
       {"Lumsar::GetInstance()",
        "Lumsar::Lumsar()",
        "Lumsar::~Lumsar()",
        "Lumsar::Init(QString, QString)",
        "Lumsar::Uninit()",
        "Lumsar::SetConfigAndPolicy(QString)",
        "Lumsar::UpdatePolicy(unsigned short, unsigned short)",
        "Lumsar::HandleCommand(QString, char*, int&)",
        "Lumsar::HandleGetCameraListCmd(char*, int&)",
        "Lumsar::TransferCmd2CameraService(QByteArray&, int)",
        "Lumsar::RedirectAll(int)",
        "Lumsar::LoadControllerLibrary(QString)",
        "Lumsar::UnloadControllerLibrary()",
        "Lumsar::Connect()",
        "Lumsar::AsyncConnect(QString)",
        "Lumsar::Disconnect()",
        "Lumsar::IsIpcConnected()",
        "Lumsar::KeepIpcConnection(Lumsar*)",
        "Lumsar::SendIpcData(int, int, unsigned char*, int)",
        "Lumsar::IpcSyncCall(int, unsigned char*, unsigned int, unsigned char*, unsigned int*)",
        "Lumsar::UnredirectAll()",
        "Lumsar::UnredirectAllVCams()",
        "Lumsar::OnConnect(int, void*)",
        "Lumsar::OnSend(int, void*)",
        "Lumsar::OnReceive(int, unsigned char*, int, void*)",
        "Lumsar::OnClose(int, int, void*)",
        "Lumsar::GenerateToken()",
        "Lumsar::RdpSendHello()",
        "Lumsar::m_instance",
        "Lumsar::staticMetaObject",
        "vtable for Lumsar"}) {
    EXPECT_TRUE(names.contains(name)) << name;
  }
}

TEST(Shape, StaysMappedAfterDlclose) {
  void* handle = dlopen(LUMSAR_PLUGIN, RTLD_NOW);
  ASSERT_NE(handle, nullptr) << dlerror();
  dlclose(handle);
  void* again = dlopen(LUMSAR_PLUGIN, RTLD_NOW | RTLD_NOLOAD);
  EXPECT_NE(again, nullptr);
}

std::string failureOf(const std::string& path) {
  return errorOf<std::runtime_error>([&] { const Plugin plugin(path); });
}

TEST(Loader, MissingFile) {
  const std::string text = failureOf("./no-such-plugin.so");
  EXPECT_TRUE(text.starts_with("cannot load plug-in: ")) << text;
  EXPECT_NE(text.find("no-such-plugin.so"), std::string::npos) << text;
}

TEST(Loader, FileThatIsNoLibrary) {
  const std::string text = failureOf("./broken/libvdi_ipc.so");
  EXPECT_TRUE(text.starts_with("cannot load plug-in: ")) << text;
}

TEST(Loader, LibraryThatIsNoPlugin) {
  const std::string text = failureOf("./ipc/libvdi_ipc.so");
  EXPECT_TRUE(text.starts_with("not a plug-in: ")) << text;
  EXPECT_NE(text.find("Init"), std::string::npos) << text;
}

TEST(Loader, BindsAllNine) {
  const Plugin plugin(LUMSAR_PLUGIN);
  void* handle = dlopen(LUMSAR_PLUGIN, RTLD_NOW | RTLD_NOLOAD);
  const auto address = [&](const char* name) { return dlsym(handle, name); };
  EXPECT_EQ(reinterpret_cast<void*>(plugin.Init), address("Init"));
  EXPECT_EQ(reinterpret_cast<void*>(plugin.Event), address("Event"));
  EXPECT_EQ(reinterpret_cast<void*>(plugin.Ctrl), address("Ctrl"));
  EXPECT_EQ(reinterpret_cast<void*>(plugin.DeInit), address("DeInit"));
  EXPECT_EQ(reinterpret_cast<void*>(plugin.RdpInit), address("RdpInit"));
  EXPECT_EQ(reinterpret_cast<void*>(plugin.RdpEvent), address("RdpEvent"));
  EXPECT_EQ(reinterpret_cast<void*>(plugin.Handler), address("Handler"));
  EXPECT_EQ(reinterpret_cast<void*>(plugin.ShareAll), address("ShareAll"));
  EXPECT_EQ(reinterpret_cast<void*>(plugin.RdpDeInit), address("RdpDeInit"));
}

}  // namespace
}  // namespace lumsar::test
