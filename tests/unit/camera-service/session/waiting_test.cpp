// The whole service: shares of cameras that are not there yet. The service is a process of its own.
#include "support/raw_peer.h"
#include "unit/camera-service/test_host.h"

namespace lumsar::test {
namespace {

class WaitingTest : public ServiceTest {
 protected:
  WaitingTest() { std::filesystem::create_directory(folder); }

  void plug() { makePicture(folder + "/a.jpg", 64, 64); }
  // What the status says of the only host's waiting shares.
  QJsonArray waiting() {
    const QJsonObject first = host().status().value("hosts").toArray().at(0).toObject();
    return first.value("waiting").toArray();
  }
  QString waitingReason() { return host().awaitChange("waiting").value("reason").toString(); }
  bool isShared() {
    const QJsonObject camera = TestHost::camera(host().list(), "file:a.jpg");
    return !camera.value("sharedWith").toArray().isEmpty();
  }
  // Plugs it in, and nothing has been shared by the time the host knows.
  void expectNotSharedWhenPlugged() {
    plug();
    host().awaitChange("added");
    EXPECT_FALSE(isShared());
    EXPECT_EQ(host().records.count(CameraDataKind::Announced), 0U);
  }

  std::string folder = dir / "cameras";
};

TEST_F(WaitingTest, AShareWaitsForACameraThatIsNotThereYet) {
  start({"--watch", folder});
  host().share("file:a.jpg");
  const QJsonObject change = host().awaitChange("waiting");
  EXPECT_EQ(change.value("camera").toString(), "file:a.jpg");
  EXPECT_EQ(change.value("vmId").toString(), "vm-7");
  const QJsonObject listed = host().list().value("refusals").toArray().at(0).toObject();
  EXPECT_EQ(listed.value("change").toString(), "waiting");
  EXPECT_EQ(listed.value("reason"), change.value("reason"));
  ASSERT_EQ(waiting().size(), 1);
  EXPECT_EQ(waiting().at(0).toObject().value("camera").toString(), "file:a.jpg");
  EXPECT_EQ(waiting().at(0).toObject().value("link").toString(), "host");
  plug();
  EXPECT_EQ(host().records.await(CameraDataKind::Announced).id, "file:a.jpg");
  EXPECT_TRUE(isShared());
  EXPECT_TRUE(waiting().isEmpty());
  EXPECT_TRUE(host().list().value("refusals").toArray().isEmpty());
}

TEST_F(WaitingTest, TheStatusForPeopleShowsIt) {
  start({"--watch", folder});
  host().share("file:a.jpg");
  host().awaitChange("waiting");
  Process status({CAMERA_SERVICE, "--status", "--ipc-channel", channel});
  EXPECT_EQ(status.wait(), 0);
  EXPECT_NE(status.output().find("file:a.jpg  host     waits until it is plugged in"),
            std::string::npos)
      << status.output();
}

TEST_F(WaitingTest, ANameWaitsToo) {
  start({"--watch", folder});
  host().share("a");
  host().awaitChange("waiting");
  plug();
  EXPECT_EQ(host().records.await(CameraDataKind::Announced).id, "file:a.jpg");
}

TEST_F(WaitingTest, TheUnpluggedWaitToo) {
  plug();
  start({"--watch", folder});
  ASSERT_TRUE(host().awaitCamera("file:a.jpg"));
  std::filesystem::remove(folder + "/a.jpg");
  host().awaitChange("removed");
  host().share("file:a.jpg");
  EXPECT_TRUE(waitingReason().contains("unplugged"));
  EXPECT_EQ(waiting().size(), 1);
  EXPECT_FALSE(TestHost::camera(host().list(), "file:a.jpg").value("present").toBool(true));
  plug();
  host().records.await(CameraDataKind::Announced);
}

TEST_F(WaitingTest, UnsharingEndsIt) {
  start({"--watch", folder});
  host().share("file:a.jpg");
  host().awaitChange("waiting");
  host().unshare("file:a.jpg");
  EXPECT_TRUE(waiting().isEmpty());
  expectNotSharedWhenPlugged();
}

TEST_F(WaitingTest, UnsharingAllEndsIt) {
  start({"--watch", folder});
  host().share("file:a.jpg");
  host().awaitChange("waiting");
  host().command(IPC_MSG_UNSHARE_ALL, {{"command", "unshareall"}});
  EXPECT_TRUE(waiting().isEmpty());
  expectNotSharedWhenPlugged();
}

TEST_F(WaitingTest, TheHostsLeavingEndsIt) {
  start({"--watch", folder});
  host().share("file:a.jpg");
  host().awaitChange("waiting");
  m_host.reset();
  ASSERT_TRUE(m_service->says("disconnected"));
  expectNotSharedWhenPlugged();
}

TEST_F(WaitingTest, ADeniedCameraIsRefusedWhenItComes) {
  start({"--watch", folder, "--deny", "a"});
  host().share("file:a.jpg");
  host().awaitChange("waiting");
  plug();
  const QJsonObject refused = host().awaitChange("refused");
  EXPECT_TRUE(refused.value("reason").toString().contains("--deny a"));
  EXPECT_TRUE(waiting().isEmpty());
  EXPECT_EQ(host().records.count(CameraDataKind::Announced), 0U);
}

TEST_F(WaitingTest, WithAllSharedOneThatWasUnsharedBeforeItCameIsNot) {
  start({"--watch", folder});
  host().command(IPC_MSG_REDIRECT_ALL, {{"sessionId", 1}});
  host().unshare("file:a.jpg");
  expectNotSharedWhenPlugged();
  host().share("file:a.jpg");
  host().records.await(CameraDataKind::Announced);
}

TEST_F(WaitingTest, ANumberIsNotWaitedFor) {
  start({"--watch", folder});
  host().share("0");
  EXPECT_TRUE(host().awaitChange("refused").value("reason").toString().contains("no such camera"));
  expectNotSharedWhenPlugged();
}

TEST_F(WaitingTest, ATextThatIsTooLongIsNotWaitedFor) {
  start({"--watch", folder});
  host().share(std::string(5000, 'x'));
  host().awaitChange("refused");
  EXPECT_TRUE(waiting().isEmpty());
}

TEST_F(WaitingTest, OnlySoManyWait) {
  start({"--watch", folder});
  for (int i = 0; i < 70; ++i) host().share("later-" + std::to_string(i));
  EXPECT_TRUE(host().awaitChange("refused").value("reason").toString().contains("wait already"));
  EXPECT_EQ(waiting().size(), 64);
}

TEST_F(WaitingTest, OverTcpTheVmIsConnectedWhenTheCameraComes) {
  start({"--watch", folder});
  const RawListener vm("tcp:0");
  const QJsonObject command = {{"command", "sharetcp"},
                               {"deviceId", "file:a.jpg"},
                               {"remoteIp", "127.0.0.1"},
                               {"remotePort", vm.port()}};
  host().command(IPC_MSG_CONNECT_VM, command);
  host().command(IPC_MSG_SHARE, command);
  host().awaitChange("waiting");
  ASSERT_EQ(waiting().size(), 1);
  EXPECT_EQ(waiting().at(0).toObject().value("link").toString(),
            QString("tcp 127.0.0.1:%1").arg(vm.port()));
  EXPECT_EQ(host().changes().size(), 1U) << "told once for both halves of the command";
  plug();
  EXPECT_EQ(headerOf(vm.accept().receive()).type, MSG_HELLO);
}

}  // namespace
}  // namespace lumsar::test
