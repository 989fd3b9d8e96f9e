// A host that exports functions of the plug-in's names itself must not catch the plug-in's inner
// calls: Handler to ShareAll, RdpDeInit to DeInit.
// A program of its own, linked with its symbols exported.
#include <dlfcn.h>

#include "support/plugin/plugin_test.h"

#define LUMSAR_HOST_EXPORT extern "C" __attribute__((visibility("default")))

namespace {
int hijacked = 0;
}

LUMSAR_HOST_EXPORT int Init() {
  return ++hijacked;
}
LUMSAR_HOST_EXPORT void Event(int) {
  ++hijacked;
}
LUMSAR_HOST_EXPORT int Ctrl() {
  return ++hijacked;
}
LUMSAR_HOST_EXPORT void DeInit() {
  ++hijacked;
}
LUMSAR_HOST_EXPORT int RdpInit() {
  return ++hijacked;
}
LUMSAR_HOST_EXPORT void RdpEvent(int) {
  ++hijacked;
}
LUMSAR_HOST_EXPORT void Handler(unsigned char*, int) {
  ++hijacked;
}
LUMSAR_HOST_EXPORT int ShareAll(int) {
  return ++hijacked;
}
LUMSAR_HOST_EXPORT void RdpDeInit() {
  ++hijacked;
}

namespace lumsar_test {
namespace {

class Hijack : public PluginTest {
 protected:
  void TearDown() override {
    EXPECT_EQ(hijacked, 0);
    PluginTest::TearDown();
  }
};

using LooseHijack = Loose<Hijack>;

TEST_F(Hijack, HostReallyExportsTheNames) {
  for (const char* name : {"Init", "Event", "Ctrl", "DeInit", "RdpInit", "RdpEvent", "Handler",
                           "ShareAll", "RdpDeInit"}) {
    Dl_info found{};
    void* address = dlsym(RTLD_DEFAULT, name);
    ASSERT_NE(address, nullptr) << name;
    ASSERT_NE(dladdr(address, &found), 0) << name;
    EXPECT_EQ(std::string(found.dli_fname).find("liblumsar"), std::string::npos) << name;
  }
}

TEST_F(LooseHijack, HandlerSharesByItself) {
  startRdp();
  handle(message(VmHello{.token = openRdpChannel(), .session = 3, .capabilities = 0x10}));
  EXPECT_EQ(ipc.take().back(), sendOf(9, R"({"sessionId":3,"vmId":"vm-7"})"));
}

TEST_F(LooseHijack, RdpDeInitDeInitializesByItself) {
  startRdp();
  plugin.RdpDeInit();
  EXPECT_EQ(ipc.take(), (Lines{"IsConnected", "Disconnect", "Destroy"}));
}

TEST_F(LooseHijack, SpiceSession) {
  startSpice();
  openSpiceChannel();
  EXPECT_EQ(ctrl(R"({"command":"unshareall"})"), 0);
  EXPECT_EQ(ipc.receive(message(6)), 0);
  plugin.Event(1);
  plugin.DeInit();
}

}  // namespace
}  // namespace lumsar_test
