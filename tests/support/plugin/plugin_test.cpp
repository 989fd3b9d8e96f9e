#include "support/plugin/plugin_test.h"

#include <dlfcn.h>

#include <QCoreApplication>
#include <utility>

namespace lumsar::test {

const std::string kIpcName = "svc";
const std::string kConfig = R"({"ipc_name":"svc","relative_path":"./ipc"})";

std::string applicationDir() {
  return QCoreApplication::applicationDirPath().toStdString();
}
std::string libraryDir() {
  return applicationDir() + "/ipc";
}

std::string configFor(const std::string& directory) {
  return R"({"ipc_name":"svc","relative_path":"./)" + directory + R"("})";
}

bool isLibraryLoaded(const std::string& directory) {
  void* handle = dlopen((directory + "/libvdi_ipc.so").c_str(), RTLD_LAZY | RTLD_NOLOAD);
  if (handle == nullptr) return false;
  dlclose(handle);
  return true;
}

FreshPluginTest::FreshPluginTest() : plugin(kPluginFile) {}

void FreshPluginTest::SetUp() {
  ASSERT_EQ(log.take(), Lines{}) << "loading must log nothing";
}

void FreshPluginTest::TearDown() {
  expectNothingUntaken();
}

void FreshPluginTest::expectNothingUntaken() {
  EXPECT_EQ(log.take(), Lines{});
  EXPECT_EQ(ipc.take(), Lines{});
  EXPECT_EQ(host.takeBytes(), std::vector<Bytes>{});
  EXPECT_EQ(host.takeEvents().size(), 0U);
}

void PluginTest::SetUp() {
  FreshPluginTest::SetUp();
  plugin.DeInit();
  ASSERT_EQ(log.take().size(), 3U);
}

int FreshPluginTest::spiceInit(const std::string& config, const std::string& vmId) const {
  return plugin.Init(host.sendFunc(), host.postEventFunc(), vmId, config);
}

int FreshPluginTest::rdpInit(const char* vmId) const {
  return plugin.RdpInit(vmId, &HostRecord::rdpSend);
}

void FreshPluginTest::startSpice(const std::string& config, const std::string& vmId) {
  ASSERT_EQ(spiceInit(config, vmId), 0);
  forget();
}

void FreshPluginTest::startRdp(const char* vmId) {
  ASSERT_EQ(rdpInit(vmId), 0);
  forget();
}

void FreshPluginTest::forget() {
  log.clear();
  ipc.take();
  host.takeSent();
  host.takeEvents();
}

int FreshPluginTest::ctrl(const std::string& command) const {
  int outputLength = 0;
  return plugin.Ctrl(command, nullptr, outputLength);
}

void FreshPluginTest::handle(Bytes bytes) const {
  plugin.Handler(bytes.data(), static_cast<int>(bytes.size()));
}

unsigned int FreshPluginTest::openSpiceChannel() {
  plugin.Event(CHANNEL_EVENT_OPENED);
  const unsigned int token = readLe16(host.takeBytes().at(0), 32);
  forget();
  return token;
}

unsigned int FreshPluginTest::openRdpChannel() {
  handle(message(3));
  const unsigned int token = readLe16(host.takeBytes().at(0), 32);
  forget();
  return token;
}

}  // namespace lumsar::test
