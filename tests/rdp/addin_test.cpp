// The channel as an add-in, loaded into a client that knows nothing of it but its name: what
// xfreerdp does, without a screen.
#include <filesystem>

#include "addin_client.h"
#include "rig.h"

namespace {

using namespace lumsar_test;

class RdpAddIn : public Rig {
 protected:
  RdpAddIn() { setenv("LUMSAR_TEST_SERVICE", path("service").c_str(), 1); }
};

TEST_F(RdpAddIn, GivesItsClientTheCameras) {
  startService();
  startServer();
  const auto here = std::filesystem::current_path();
  {
    const AddInClient client(path("rdp"), path("state"), addInWords());
    ASSERT_TRUE(client.connected());
    ASSERT_TRUE(server->waitForClient());
    greet();
    expectThrough(noise(1'000'000, 1));
    server->send(message(lumsar::MSG_DATA, noise(70'000, 2)));
    const auto data = service->messages().nextOf(lumsar::IPC_MSG_DATA);
    ASSERT_TRUE(data);
    EXPECT_EQ(payloadOf(*data), noise(70'000, 2));
    EXPECT_EQ(std::filesystem::current_path(), here);
  }
  std::this_thread::sleep_for(milliseconds(100));
  EXPECT_FALSE(service->connected());
}

TEST_F(RdpAddIn, OneClientAfterAnother) {
  startService();
  startServer();
  for (int i = 0; i < 2; ++i) {
    const AddInClient client(path("rdp"), path("state"), addInWords());
    ASSERT_TRUE(client.connected());
    ASSERT_TRUE(server->waitForClient());
    greet();
    expectThrough(noise(5000, 1));
  }
}

TEST_F(RdpAddIn, RecoversFromALostCameraService) {
  startService();
  startServer();
  const AddInClient client(path("rdp"), path("state"), addInWords());
  ASSERT_TRUE(server->waitForClient());
  greet();
  service.reset();
  startService();
  const auto bytes = server->messages().nextOf(lumsar::MSG_HELLO);
  ASSERT_TRUE(bytes);
}

TEST_F(RdpAddIn, SaysWhatIsWrongWithItsOptions) {
  startServer();
  testing::internal::CaptureStderr();
  const AddInClient client(path("rdp"), path("state"), {"lumsar", "camera:3"});
  EXPECT_FALSE(client.connected());
  EXPECT_NE(testing::internal::GetCapturedStderr().find(
                "lumsar: no cameras: unknown option \"camera:3\": there are plugin:PATH"),
            std::string::npos);
}

}  // namespace
