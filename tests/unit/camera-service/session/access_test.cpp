// The whole service: denied cameras. The service is a process of its own.
#include "support/text.h"
#include "unit/camera-service/test_host.h"

namespace lumsar::test {
namespace {

class AccessTest : public ServiceTest {};

TEST_F(AccessTest, ADeniedCameraIsNotListedAndNotShared) {
  start({"--camera", "test:A,320x240", "--camera", "test:B,320x240", "--deny", "test:B"});
  ASSERT_TRUE(host().awaitCamera("test:A"));
  EXPECT_TRUE(TestHost::camera(host().list(), "test:B").isEmpty());
  host().share("test:B");
  const QString reason = host().awaitChange("refused").value("reason").toString();
  EXPECT_TRUE(reason.contains("--deny test:B")) << reason.toStdString();
  EXPECT_TRUE(m_service->says("--deny test:B"));
  EXPECT_EQ(host().records.count(CameraDataKind::Announced), 0U);
}

TEST_F(AccessTest, RulesThatMatchNoCameraAreNamedAtTheStart) {
  start({"--camera", "test:A,320x240", "--deny", "Typo*", "--deny", "test:A"});
  ASSERT_TRUE(m_service->says("--deny Typo*: matches no camera yet"));
  EXPECT_FALSE(has(log(), "--deny test:A: matches"));
}

TEST_F(AccessTest, DenialsMayBeForOneVm) {
  start({"--camera", "test:A,320x240", "--deny", "A@vm-9"});
  const auto good = newHost("vm-7");
  const auto bad = newHost("vm-9");
  EXPECT_TRUE(good->awaitCamera("test:A"));
  EXPECT_TRUE(TestHost::camera(bad->list(), "test:A").isEmpty());
  good->share("test:A");
  good->records.await(CameraDataKind::Announced);
  bad->share("test:A");
  bad->awaitChange("refused");
}

TEST_F(AccessTest, ADenialForAVmHoldsBeforeItsWholeIdIsKnown) {
  const std::string id = "0f8fad5b-d9cb-469f-a165-70867728950e";
  start({"--camera", "test:A,320x240", "--camera", "test:B,320x240", "--deny", "A@" + id});
  TestHost host(channel, id.substr(0, 31));  // all that an introduction has room for
  ASSERT_TRUE(host.awaitCamera("test:B"));
  EXPECT_TRUE(TestHost::camera(host.list(), "test:A").isEmpty());
  host.command(IPC_MSG_SHARE, TestHost::withDevice("share", "test:A"));
  EXPECT_TRUE(host.awaitChange("refused").value("reason").toString().contains("--deny"));
}

TEST_F(AccessTest, OnlyWhatIsAllowed) {
  start({"--camera", "test:A,320x240", "--camera", "test:B,320x240", "--allow", "B"});
  ASSERT_TRUE(host().awaitCamera("test:B"));
  EXPECT_TRUE(TestHost::camera(host().list(), "test:A").isEmpty());
  host().share("0");
  EXPECT_TRUE(host().awaitChange("refused").value("reason").toString().contains("--allow"));
}

TEST_F(AccessTest, ADeniedCameraIsNotAnnouncedToTheHost) {
  const std::string folder = dir / "cameras";
  std::filesystem::create_directory(folder);
  start({"--watch", folder, "--deny", "file:secret*"});
  host();  // sees what comes from now on
  makePicture(folder + "/secret.jpg", 64, 64);
  ASSERT_TRUE(m_service->says("is withheld from VM 'vm-7'"));
  makePicture(folder + "/open.jpg", 64, 64);
  EXPECT_EQ(host().awaitChange("added").value("camera").toString(), "file:open.jpg");
}

}  // namespace
}  // namespace lumsar::test
