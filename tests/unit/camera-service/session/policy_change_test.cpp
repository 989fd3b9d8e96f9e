// The whole service: policies, also while a camera runs. The service is a process of its own.
#include <cstring>

#include "capture/encoder.h"
#include "protocol/camera_record.h"
#include "session/share.h"
#include "unit/camera-service/test_host.h"

namespace lumsar::test {
namespace {

class PolicyChangeTest : public ServiceTest {
 protected:
  PolicyChangeTest() { gst_init(nullptr, nullptr); }
};

TEST_F(PolicyChangeTest, TheFrameSizeChangesWhileRunning) {
  start({"--camera", "test:A,640x480@30"});
  watch(host(), "test:A");
  EXPECT_TRUE(host().records.awaitFrameOf({640, 480}));
  host().policy({{"cameraMaxResolution", "320*320"}});
  EXPECT_TRUE(host().records.awaitFrameOf({320, 240}));
  host().policy({{"cameraMaxResolution", "4000*4000"}});
  EXPECT_TRUE(host().records.awaitFrameOf({640, 480}));
}

// Frames of 2 MB and more, of which no socket holds one.
TEST_F(PolicyChangeTest, FramesArePassedThroughWholeAsLongAsThePolicyAcceptsThem) {
  makeMovie(dir / "snow.avi", 1920, 1080, 10, 95, "snow");
  start({"--camera", "file:" + (dir / "snow.avi")});
  host().policy({{"cameraQuality", 95}});
  watch(host(), "file:snow.avi");
  const std::string file = readFile(dir / "snow.avi");
  const auto isOwn = [&](const Record& frame) {
    return memmem(file.data(), file.size(), frame.picture.data(), frame.picture.size()) != nullptr;
  };
  EXPECT_TRUE(isOwn(host().records.await(CameraDataKind::Frame, 5)));
  for (const Record& frame : host().records.of(CameraDataKind::Frame)) {
    EXPECT_TRUE(isOwn(frame)) << "frame " << frame.frame.sequence;
    EXPECT_GT(frame.picture.size(), 1'000'000U);
  }
  const QString treatment =
      TestHost::camera(host().status(), "file:snow.avi").value("treatment").toString();
  EXPECT_EQ(treatment, "passed through");

  host().policy({{"cameraQuality", 50}});
  EXPECT_TRUE(eventually([&] { return !isOwn(host().records.of(CameraDataKind::Frame).back()); }));
  host().policy({{"cameraQuality", 95}, {"cameraMaxResolution", "640*640"}});
  EXPECT_TRUE(host().records.awaitFrameOf({640, 360}));
  host().policy({{"cameraQuality", 95}});
  EXPECT_TRUE(eventually([&] { return isOwn(host().records.of(CameraDataKind::Frame).back()); }));
  std::uint32_t sequence = 0;
  for (const Record& frame : host().records.of(CameraDataKind::Frame)) {
    EXPECT_EQ(frame.frame.sequence, ++sequence);
    EXPECT_EQ(jpegSize(frame.picture), (PictureSize{frame.frame.width, frame.frame.height}));
  }
}

TEST_F(PolicyChangeTest, APolicyBeforeTheShareIsAnnounced) {
  start({"--camera", "test:A,640x480@30"});
  ASSERT_TRUE(host().awaitCamera("test:A"));
  host().policy({{"cameraMaxResolution", "160*160"}, {"cameraFrameInternal", 200}});
  host().share("test:A");
  const Record announced = host().records.await(CameraDataKind::Announced);
  EXPECT_EQ(announced.announced.width, 160);
  EXPECT_EQ(announced.announced.height, 120);
  EXPECT_EQ(announced.announced.frameInterval, 200'000U);
}

TEST_F(PolicyChangeTest, QualityAndIntervalAreObeyed) {
  start({"--camera", "test:A,320x240@30"});
  host().policy({{"cameraQuality", 95}});
  watch(host(), "test:A");
  const std::size_t best = host().records.await(CameraDataKind::Frame, 3).picture.size();
  host().policy({{"cameraQuality", 5}, {"cameraFrameInternal", 250}});
  EXPECT_TRUE(eventually(
      [&] { return host().records.of(CameraDataKind::Frame).back().picture.size() < best / 2; }));
  const std::size_t before = host().records.count(CameraDataKind::Frame);
  const auto begin = std::chrono::steady_clock::now();
  std::this_thread::sleep_for(milliseconds(1000));
  const std::size_t frames = host().records.count(CameraDataKind::Frame) - before;
  const auto time = std::chrono::steady_clock::now() - begin;
  EXPECT_LE(frames, static_cast<std::size_t>(time / milliseconds(250)) + 2);
}

TEST_F(PolicyChangeTest, PoliciesOfTwoHostsAreBothObeyed) {
  start({"--camera", "test:A,640x480@30"});
  const auto first = newHost("vm-1");
  const auto second = newHost("vm-2");
  second->policy({{"cameraMaxResolution", "160*160"}, {"cameraFrameInternal", 500}});
  watch(*first, "test:A");
  watch(*second, "test:A");
  EXPECT_TRUE(first->records.awaitFrameOf({160, 120}));
  const std::size_t fast = first->records.count(CameraDataKind::Frame);
  const std::size_t slow = second->records.count(CameraDataKind::Frame);
  const auto begin = std::chrono::steady_clock::now();
  first->records.await(CameraDataKind::Frame, fast + 30);
  const auto frames = second->records.count(CameraDataKind::Frame) - slow;
  const auto time = std::chrono::steady_clock::now() - begin;
  EXPECT_LT(time, milliseconds(30 * 400)) << "as fast as it may, not as slow as the other";
  EXPECT_LE(frames, static_cast<std::size_t>(time / milliseconds(500)) + 3);
}

TEST_F(PolicyChangeTest, CorrectionsAreTold) {
  start({"--camera", "test:A,320x240"});
  host().policy({{"cameraQuality", 300}});
  const QString note = host().awaitChange("policy").value("reason").toString();
  EXPECT_TRUE(note.contains("cameraQuality 300 is outside 0 to 100; using 100"))
      << note.toStdString();
  EXPECT_EQ(host().list().value("policyNotes").toArray(), QJsonArray{note});
  host().policy({{"cameraQuality", 300}});
  host().policy({{"cameraQuality", 50}});
  EXPECT_TRUE(host().list().value("policyNotes").toArray().isEmpty());
  EXPECT_EQ(host().changes().size(), 1U) << "the same correction is told once";
}

TEST_F(PolicyChangeTest, NonsenseIsRefusedAndTheFormerPolicyStays) {
  start({"--camera", "test:A,640x480@30"});
  host().policy({{"cameraMaxResolution", "320*320"}});
  watch(host(), "test:A");
  EXPECT_TRUE(host().records.awaitFrameOf({320, 240}));
  host().send(IPC_MSG_POLICY, "nonsense");
  EXPECT_TRUE(host().awaitChange("refused").value("reason").toString().contains("not JSON"));
  host().send(IPC_MSG_POLICY, std::string(1, '\0'));
  host().awaitChange("refused", 2);
  EXPECT_TRUE(host().records.awaitFrameOf({320, 240}));
}

TEST_F(PolicyChangeTest, H264WhereThereIsAnEncoder) {
  if (!service::h264Available()) GTEST_SKIP() << "no H.264 encoder is installed";
  start({"--camera", "test:A,320x240@30"});
  host().policy({{"cameraEncodeType", "H264"}});
  watch(host(), "test:A");
  const CameraFrame frame = host().records.await(CameraDataKind::Frame).frame;
  EXPECT_EQ(frame.encoding, kEncodingH264);
  EXPECT_EQ(frame.flags & kFrameIsKey, kFrameIsKey) << "a VM begins with what stands by itself";
  const auto dependsOnOthers = [](const Record& record) { return record.frame.flags == 0; };
  EXPECT_TRUE(eventually([&] {
    return std::ranges::any_of(host().records.of(CameraDataKind::Frame), dependsOnOthers);
  }));
  EXPECT_TRUE(host().changes().empty()) << "nothing had to be corrected";
}

TEST_F(PolicyChangeTest, AutoIsH264OnceTheVmShowsIt) {
  if (!service::h264Available()) GTEST_SKIP() << "no H.264 encoder is installed";
  start({"--camera", "test:A,320x240@30"});
  host().policy({{"cameraEncodeType", "AUTO"}});
  watch(host(), "test:A");
  EXPECT_EQ(host().records.await(CameraDataKind::Frame).frame.encoding, kEncodingMjpg);
  const auto sends = [&](std::uint32_t encoding) {
    return eventually([&] {
      const auto frames = host().records.of(CameraDataKind::Frame);
      return !frames.empty() && frames.back().frame.encoding == encoding;
    });
  };
  host().showsH264(true);
  EXPECT_TRUE(sends(kEncodingH264));
  host().showsH264(false);
  EXPECT_TRUE(sends(kEncodingMjpg));
  EXPECT_TRUE(host().changes().empty()) << "nothing had to be corrected";
}

TEST_F(PolicyChangeTest, FramesAreNoLargerThanTheVmsConsumerWants) {
  start({"--camera", "test:A,640x480@30"});
  const std::uint32_t camera = watch(host(), "test:A");
  ASSERT_TRUE(host().records.awaitFrameOf({640, 480}));
  const CameraSize small{320, 320};
  host().fromVm(CameraDataKind::WantedSize, camera, protocol::bytesOf(small));
  EXPECT_TRUE(host().records.awaitFrameOf({320, 240}));
  host().fromVm(CameraDataKind::WantedSize, camera, protocol::bytesOf(small).first(3));
  const CameraSize tiny{1, 1};
  host().fromVm(CameraDataKind::WantedSize, camera, protocol::bytesOf(tiny));
  EXPECT_TRUE(host().records.awaitFrameOf({16, 12}));
  const CameraSize any{};
  host().fromVm(CameraDataKind::WantedSize, camera, protocol::bytesOf(any));
  EXPECT_TRUE(host().records.awaitFrameOf({640, 480}));
}

// A consumer that is resized with the mouse.
TEST_F(PolicyChangeTest, TheLastOfManySizesCountsThoughLater) {
  start({"--camera", "test:A,640x480@30"});
  const std::uint32_t camera = watch(host(), "test:A");
  for (int i = 0; i < 4 * service::kMaxSizeChanges; ++i) {
    const CameraSize size{static_cast<std::uint16_t>(320 + 2 * i), 320};
    host().fromVm(CameraDataKind::WantedSize, camera, protocol::bytesOf(size));
  }
  host().fromVm(CameraDataKind::WantedSize, camera, protocol::bytesOf(CameraSize{160, 160}));
  EXPECT_TRUE(host().records.awaitFrameOf({160, 120}));
}

TEST_F(PolicyChangeTest, TheLastOfManyEncodingsCountsThoughLater) {
  if (!service::h264Available()) GTEST_SKIP() << "no H.264 encoder is installed";
  start({"--camera", "test:A,320x240@30"});
  host().policy({{"cameraEncodeType", "AUTO"}});
  watch(host(), "test:A");
  for (int i = 0; i < 4 * service::kMaxSizeChanges; ++i) host().showsH264(i % 2 == 0);
  host().showsH264(true);
  EXPECT_TRUE(eventually([&] {
    const auto frames = host().records.of(CameraDataKind::Frame);
    return !frames.empty() && frames.back().frame.encoding == kEncodingH264;
  }));
}

// A directory with all of GStreamer's plug-ins but the H.264 encoders.
void linkPluginsWithoutH264(const std::string& folder) {
  const std::unique_ptr<GstPlugin, decltype(&gst_object_unref)> plugin(
      gst_registry_find_plugin(gst_registry_get(), "coreelements"), gst_object_unref);
  const std::filesystem::path installed(gst_plugin_get_filename(plugin.get()));
  std::filesystem::create_directory(folder);
  for (const auto& entry : std::filesystem::directory_iterator(installed.parent_path())) {
    const std::string name = entry.path().filename();
    if (name.find("264") != std::string::npos) continue;
    std::filesystem::create_symlink(entry.path(), folder + "/" + name);
  }
}

TEST_F(PolicyChangeTest, WithoutAnH264EncoderItFallsBackAndSaysSo) {
  linkPluginsWithoutH264(dir / "plugins");
  ::setenv("GST_PLUGIN_SYSTEM_PATH_1_0", (dir / "plugins").c_str(), 1);
  ::setenv("GST_REGISTRY", (dir / "registry").c_str(), 1);
  start({"--camera", "test:A,320x240@30"});
  host().policy({{"cameraEncodeType", "H264"}});
  const QString note = host().awaitChange("policy").value("reason").toString();
  EXPECT_TRUE(note.contains("needs an H.264 encoder")) << note.toStdString();
  EXPECT_TRUE(note.contains("using MJPG")) << note.toStdString();
  watch(host(), "test:A");
  EXPECT_EQ(host().records.await(CameraDataKind::Frame).frame.encoding, kEncodingMjpg);
}

}  // namespace
}  // namespace lumsar::test
