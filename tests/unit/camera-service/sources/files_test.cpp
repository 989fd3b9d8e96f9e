// The whole service: pictures and movies as cameras, plugged and unplugged in a watched folder.
#include <algorithm>

#include "unit/camera-service/test_host.h"

namespace lumsar::test {
namespace {

class FilesTest : public ServiceTest {
 protected:
  FilesTest() { std::filesystem::create_directory(folder); }
  std::string folder = dir / "cameras";
};

TEST_F(FilesTest, APictureIsACamera) {
  makePicture(dir / "still.jpg", 320, 200);
  start({"--camera", "file:" + (dir / "still.jpg")});
  watch(host(), "file:still.jpg");
  EXPECT_TRUE(host().records.awaitFrameOf({320, 200}));
  EXPECT_EQ(TestHost::camera(host().list(), "file:still.jpg").value("name").toString(), "still");
}

TEST_F(FilesTest, AMovieIsACamera) {
  makeMovie(dir / "m.avi", 160, 120, 6);
  start({"--camera", "file:" + (dir / "m.avi")});
  watch(host(), "file:m.avi");
  host().records.await(CameraDataKind::Frame, 15);
}

TEST_F(FilesTest, FilesOfOneNameAreTwoCameras) {
  makePicture(dir / "p.jpg", 64, 64);
  makePicture(folder + "/p.jpg", 64, 64);
  start({"--camera", "file:" + (dir / "p.jpg"), "--camera", "file:" + folder + "/p.jpg"});
  EXPECT_TRUE(host().awaitCamera("file:p.jpg"));
  EXPECT_TRUE(host().awaitCamera("file:" + folder + "/p.jpg"));
}

TEST_F(FilesTest, PluggedAndUnplugged) {
  start({"--watch", folder});
  EXPECT_TRUE(host().list().value("cameras").toArray().isEmpty());
  makePicture(folder + "/a.jpg", 320, 240);
  const QJsonObject added = host().awaitChange("added");
  EXPECT_EQ(added.value("camera").toString(), "file:a.jpg");
  EXPECT_EQ(added.value("name").toString(), "a");
  watch(host(), "file:a.jpg");
  std::filesystem::remove(folder + "/a.jpg");
  EXPECT_EQ(host().awaitChange("removed").value("camera").toString(), "file:a.jpg");
  EXPECT_EQ(host().records.await(CameraDataKind::Removed).text, "unplugged");
  EXPECT_FALSE(host().isRunning("file:a.jpg"));
}

TEST_F(FilesTest, PluggedAgainItIsSharedAgain) {
  makePicture(folder + "/a.jpg", 320, 240);
  start({"--watch", folder});
  const std::uint32_t number = watch(host(), "file:a.jpg");
  std::filesystem::rename(folder + "/a.jpg", dir / "a.jpg");
  host().records.await(CameraDataKind::Removed);
  EXPECT_FALSE(TestHost::camera(host().list(), "file:a.jpg").value("present").toBool(true));
  std::filesystem::rename(dir / "a.jpg", folder + "/a.jpg");
  const Record again = host().records.await(CameraDataKind::Announced, 2);
  EXPECT_EQ(again.camera, number);
  EXPECT_TRUE(host().changes().back().value("reason").toString().contains("again"));
  const std::size_t frames = host().records.count(CameraDataKind::Frame);
  host().fromVm(CameraDataKind::Start, again.camera);
  host().records.await(CameraDataKind::Frame, frames + 2);
}

TEST_F(FilesTest, TakenBackWhileUnpluggedItStaysTakenBack) {
  makePicture(folder + "/a.jpg", 320, 240);
  start({"--watch", folder});
  ASSERT_TRUE(host().awaitCamera("file:a.jpg"));
  host().share("file:a.jpg");
  host().records.await(CameraDataKind::Announced);
  std::filesystem::rename(folder + "/a.jpg", dir / "a.jpg");
  host().records.await(CameraDataKind::Removed);
  host().share("file:a.jpg");
  EXPECT_TRUE(host().awaitChange("waiting").value("reason").toString().contains("unplugged"));
  host().unshare("file:a.jpg");
  std::filesystem::rename(dir / "a.jpg", folder + "/a.jpg");
  host().awaitChange("added");
  EXPECT_TRUE(
      TestHost::camera(host().list(), "file:a.jpg").value("sharedWith").toArray().isEmpty());
}

TEST_F(FilesTest, WithAllSharedANewCameraIsSharedToo) {
  start({"--watch", folder});
  host().command(IPC_MSG_REDIRECT_ALL, {{"sessionId", 1}});
  makePicture(folder + "/a.jpg", 64, 64);
  EXPECT_EQ(host().records.await(CameraDataKind::Announced).id, "file:a.jpg");
}

TEST_F(FilesTest, AFileThatIsNoPictureIsSaidAndTheOthersGoOn) {
  start({"--watch", folder});
  host();
  writeFile(folder + "/bad.jpg", "this is no picture");
  const QJsonObject refused = host().awaitChange("refused");
  EXPECT_EQ(refused.value("camera").toString(), "file:bad.jpg");
  EXPECT_TRUE(refused.value("reason").toString().contains("not a readable still image"));
  makePicture(folder + "/good.jpg", 64, 64);
  EXPECT_TRUE(host().awaitCamera("file:good.jpg"));
  EXPECT_TRUE(TestHost::camera(host().list(), "file:bad.jpg").isEmpty());
}

TEST_F(FilesTest, AFileThatIsNoPictureIsInTheListUntilItIsGone) {
  writeFile(folder + "/bad.jpg", "this is no picture");
  writeFile(folder + "/secret.jpg", "this is none either");
  start({"--watch", folder, "--deny", "file:secret*"});
  ASSERT_TRUE(m_service->says("'file:bad.jpg' is left out"));
  ASSERT_TRUE(m_service->says("'file:secret.jpg' is left out"));
  const auto late = newHost();
  const QJsonArray refusals = late->list().value("refusals").toArray();
  ASSERT_EQ(refusals.size(), 1);
  EXPECT_EQ(refusals.at(0).toObject().value("camera").toString(), "file:bad.jpg");
  EXPECT_TRUE(refusals.at(0).toObject().value("state").toBool()) << "of the file, not a command";
  EXPECT_TRUE(
      refusals.at(0).toObject().value("reason").toString().contains("not a readable still image"));
  std::filesystem::remove(folder + "/bad.jpg");
  EXPECT_TRUE(eventually([&] { return late->list().value("refusals").toArray().isEmpty(); }));
}

TEST_F(FilesTest, AShareOfAFileThatIsNoPictureYetWaitsAndMayBeUnshared) {
  writeFile(folder + "/a.jpg", "this is no picture yet");
  start({"--watch", folder});
  ASSERT_TRUE(m_service->says("'file:a.jpg' is left out"));
  const auto noneOfACommand = [&] {
    const QJsonArray refusals = host().list().value("refusals").toArray();
    return std::ranges::all_of(
        refusals, [](const auto& entry) { return entry.toObject().value("state").toBool(); });
  };
  host().share("file:a.jpg");
  host().awaitChange("waiting");
  EXPECT_TRUE(noneOfACommand());
  host().unshare("file:a.jpg");
  EXPECT_TRUE(noneOfACommand());
  host().unshare("file:a.jpg");
  EXPECT_FALSE(noneOfACommand()) << "it was not shared any more";
}

TEST_F(FilesTest, ACameraThatFailsIsInTheListUntilItWorks) {
  makePicture(dir / "p.jpg", 64, 64);
  start({"--camera", "file:" + (dir / "p.jpg")});
  ASSERT_TRUE(host().awaitCamera("file:p.jpg"));
  std::filesystem::rename(dir / "p.jpg", dir / "away");
  host().share("file:p.jpg");
  host().fromVm(CameraDataKind::Start, host().records.await(CameraDataKind::Announced).camera);
  host().awaitChange("failed");
  const QJsonArray refusals = host().list().value("refusals").toArray();
  ASSERT_EQ(refusals.size(), 1);
  EXPECT_EQ(refusals.at(0).toObject().value("change").toString(), "failed");
  EXPECT_EQ(refusals.at(0).toObject().value("camera").toString(), "file:p.jpg");
  EXPECT_TRUE(refusals.at(0).toObject().value("state").toBool()) << "of the camera, not a command";
  std::filesystem::rename(dir / "away", dir / "p.jpg");
  host().records.await(CameraDataKind::Frame);
  EXPECT_TRUE(host().list().value("refusals").toArray().isEmpty());
}

TEST_F(FilesTest, AFileThatIsAlwaysWrittenIsLookedIntoAtItsEnd) {
  makePicture(dir / "p.jpg", 1920, 1080);
  start({"--watch", folder});
  host();
  for (int i = 0; i < 1000; ++i) {
    std::filesystem::copy_file(dir / "p.jpg", folder + "/a.jpg",
                               std::filesystem::copy_options::overwrite_existing);
  }
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_TRUE(host().awaitCamera("file:a.jpg"));
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(5));
}

TEST_F(FilesTest, RulesHoldForANameThatIsNoText) {
  makePicture(dir / "p.jpg", 64, 64);
  std::filesystem::copy_file(dir / "p.jpg", folder + "/secret-\xFF.jpg");
  std::filesystem::copy_file(dir / "p.jpg", folder + "/open-\xFF.jpg");
  start({"--watch", folder, "--deny", "file:secret-*"});
  EXPECT_TRUE(host().awaitCamera("file:open-%FF.jpg"));
  ASSERT_TRUE(m_service->says("'file:secret-%FF.jpg'"));
  EXPECT_EQ(host().list().value("cameras").toArray().size(), 1);
  watch(host(), "file:open-%FF.jpg");
}

TEST_F(FilesTest, FilesOfOneNameKeepTheirIds) {
  const std::string other = dir / "other";
  std::filesystem::create_directory(other);
  makePicture(folder + "/x.jpg", 64, 64);
  start({"--watch", folder, "--watch", other});
  ASSERT_TRUE(host().awaitCamera("file:x.jpg"));
  makePicture(other + "/x.jpg", 64, 64);
  ASSERT_TRUE(host().awaitCamera("file:" + other + "/x.jpg"));
  std::filesystem::rename(folder + "/x.jpg", dir / "x.jpg");
  std::filesystem::rename(other + "/x.jpg", dir / "y.jpg");
  host().awaitChange("removed", 2);
  std::filesystem::rename(dir / "y.jpg", other + "/x.jpg");
  ASSERT_TRUE(host().awaitCamera("file:" + other + "/x.jpg"));
  EXPECT_TRUE(TestHost::camera(host().list(), "file:x.jpg").isEmpty());
}

TEST_F(FilesTest, APictureWrittenAnewIsTheSameCamera) {
  makePicture(folder + "/a.jpg", 320, 240);
  start({"--watch", folder});
  const std::uint32_t number = watch(host(), "file:a.jpg");
  makePicture(folder + "/a.jpg", 160, 120);
  const Record again = host().records.await(CameraDataKind::Announced, 2);
  EXPECT_EQ(again.camera, number);
  EXPECT_EQ(again.announced.width, 160);
  host().fromVm(CameraDataKind::Start, number);
  EXPECT_TRUE(host().records.awaitFrameOf({160, 120}));
}

}  // namespace
}  // namespace lumsar::test
