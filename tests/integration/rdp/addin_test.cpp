// The channel as an add-in, loaded into a client that knows nothing of it but its name: what
// xfreerdp does, without a screen.
#include <dlfcn.h>

#include <filesystem>

#include "base/text/bytes.h"
#include "integration/rdp/addin_process.h"
#include "integration/rdp/rig.h"
#include "support/text.h"

namespace lumsar::test {
namespace {

class RdpAddIn : public Rig {};

// Nor does it take the client's working directory from it, though the plug-in wants another one.
TEST_F(RdpAddIn, GivesItsClientTheCameras) {
  const auto before = std::filesystem::current_path();
  startService();
  startServer();
  {
    AddInProcess client(path("rdp"), path("state"), addInWords());
    ASSERT_TRUE(client.connected());
    beginSession();
    EXPECT_EQ(service->directoryAtAccept(), before);
    expectAtVm(noise(1'000'000, 1));
    expectAtService(noise(70'000, 2));
  }
  EXPECT_TRUE(eventually([this] { return !service->connected(); }));
}

TEST_F(RdpAddIn, OneClientAfterAnother) {
  startService();
  startServer();
  for (int i = 0; i < 2; ++i) {
    AddInProcess client(path("rdp"), path("state"), addInWords());
    ASSERT_TRUE(client.connected());
    beginSession();
    expectAtVm(noise(5000, 1));
  }
}

// Also of a VM that wants all cameras.
TEST_F(RdpAddIn, SharesWhatItsOptionsSay) {
  startService();
  startServer();
  auto words = addInWords();
  words.insert(words.end(), {"share:Front", "share:Desk camera"});
  AddInProcess client(path("rdp"), path("state"), words);
  ASSERT_TRUE(server->waitForClient());
  handshake(CAP_SHARE_ALL);
  ASSERT_TRUE(service->messages().nextOf(IPC_MSG_UNSHARE_ALL));
  for (const std::string camera : {"Front", "Desk camera"}) {
    const auto share = service->messages().nextOf(IPC_MSG_SHARE);
    ASSERT_TRUE(share) << camera;
    EXPECT_NE(base::textOf(*share).find('"' + camera + '"'), std::string::npos);
  }
}

TEST_F(RdpAddIn, SharesAllOrNone) {
  startService();
  startServer();
  for (const auto& [option, type] : {std::pair("share:all", IPC_MSG_REDIRECT_ALL),
                                     std::pair("share:none", IPC_MSG_UNSHARE_ALL)}) {
    auto words = addInWords();
    words.push_back(option);
    AddInProcess client(path("rdp"), path("state"), words);
    ASSERT_TRUE(server->waitForClient());
    handshake();
    EXPECT_TRUE(service->messages().nextOf(type)) << option;
  }
}

// As xfreerdp does when it reconnects by itself: the same add-in, another connection.
TEST_F(RdpAddIn, StaysWithAClientThatConnectsAgain) {
  startService();
  startServer();
  AddInProcess client(path("rdp"), path("state"), addInWords());
  beginSession();
  for (int i = 0; i < 2; ++i) {
    service->send(message(IPC_MSG_DATA, noise(4U << 20U, 1)));
    server->dropClient();
    ASSERT_TRUE(client.connectAgain());
    ASSERT_TRUE(server->waitForClient());
    server->messages().clear();
    handshake();
    expectAtVm(noise(5000, 2));
  }
  EXPECT_TRUE(service->connected());
}

TEST_F(RdpAddIn, RecoversFromALostCameraService) {
  startService();
  startServer();
  AddInProcess client(path("rdp"), path("state"), addInWords());
  beginSession();
  service.reset();
  startService();
  EXPECT_TRUE(nextHello());
}

// The user's desktop is worth more than the cameras.
TEST_F(RdpAddIn, SaysWhatIsWrongWithItsOptionsAndLetsTheClientConnect) {
  startServer();
  AddInProcess client(path("rdp"), path("state"), {"lumsar", "camera:3"});
  EXPECT_TRUE(client.connected());
  EXPECT_TRUE(server->waitForClient());
  EXPECT_TRUE(has(client.output(),
                  "lumsar: no cameras: unknown option \"camera:3\"; expected plugin:PATH"));
}

TEST_F(RdpAddIn, SaysWhyThereIsNoWindowIfItIsAsked) {
  startServer();
  auto words = addInWords();
  words.push_back("verbose");
  AddInProcess client(path("rdp"), path("state"), words);
  EXPECT_TRUE(has(client.output(), "lumsar: no camera window: this program does not use GTK 3\n"));
}

// The plug-in's last threads write their log through it.
TEST_F(RdpAddIn, StaysLoadedInAClientThatUnloadsIt) {
  void* library = dlopen(LUMSAR_RDP_ADDIN, RTLD_NOW | RTLD_LOCAL);
  ASSERT_NE(library, nullptr) << dlerror();
  dlclose(library);
  EXPECT_NE(dlopen(LUMSAR_RDP_ADDIN, RTLD_NOW | RTLD_NOLOAD), nullptr);
}

}  // namespace
}  // namespace lumsar::test
