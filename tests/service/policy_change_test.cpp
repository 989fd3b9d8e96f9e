// The whole service: policies, also while a camera runs. The service is a process of its own.
#include "service/encoder.h"
#include "test_host.h"

namespace lumsar::test {
namespace {

class PolicyChangeTest : public ServiceTest {
 protected:
  PolicyChangeTest() { gst_init(nullptr, nullptr); }
};

TEST_F(PolicyChangeTest, ThePictureSizeChangesWhileRunning) {
  start({"--camera", "test:A,640x480@30"});
  const auto host = this->host();
  watch(*host, "test:A");
  EXPECT_TRUE(host->records.awaitFrameOf({640, 480}));
  host->policy({{"cameraMaxResolution", "320*320"}});
  EXPECT_TRUE(host->records.awaitFrameOf({320, 240}));
  host->policy({{"cameraMaxResolution", "4000*4000"}});
  EXPECT_TRUE(host->records.awaitFrameOf({640, 480}));
}

TEST_F(PolicyChangeTest, APolicyBeforeTheShareIsAnnounced) {
  start({"--camera", "test:A,640x480@30"});
  const auto host = this->host();
  ASSERT_TRUE(host->awaitCamera("test:A"));
  host->policy({{"cameraMaxResolution", "160*160"}, {"cameraFrameInternal", 200}});
  host->share("test:A");
  const Record announced = host->records.await(CameraDataKind::Announced);
  EXPECT_EQ(announced.announced.width, 160);
  EXPECT_EQ(announced.announced.height, 120);
  EXPECT_EQ(announced.announced.frameInterval, 200'000U);
}

TEST_F(PolicyChangeTest, QualityAndIntervalAreObeyed) {
  start({"--camera", "test:A,320x240@30"});
  const auto host = this->host();
  host->policy({{"cameraQuality", 95}});
  watch(*host, "test:A");
  const std::size_t best = host->records.await(CameraDataKind::Frame, 3).picture.size();
  host->policy({{"cameraQuality", 5}, {"cameraFrameInternal", 250}});
  EXPECT_TRUE(waitUntil(
      [&] { return host->records.of(CameraDataKind::Frame).back().picture.size() < best / 2; }));
  const std::size_t before = host->records.count(CameraDataKind::Frame);
  std::this_thread::sleep_for(milliseconds(1000));
  EXPECT_LE(host->records.count(CameraDataKind::Frame) - before, 6U);
}

TEST_F(PolicyChangeTest, PoliciesOfTwoHostsAreBothObeyed) {
  start({"--camera", "test:A,640x480@30"});
  const auto first = host("vm-1");
  const auto second = host("vm-2");
  second->policy({{"cameraMaxResolution", "160*160"}, {"cameraFrameInternal", 500}});
  watch(*first, "test:A");
  watch(*second, "test:A");
  EXPECT_TRUE(first->records.awaitFrameOf({160, 120}));
  const std::size_t fast = first->records.count(CameraDataKind::Frame);
  const std::size_t slow = second->records.count(CameraDataKind::Frame);
  std::this_thread::sleep_for(milliseconds(1000));
  EXPECT_GE(first->records.count(CameraDataKind::Frame) - fast, 12U) << "as fast as it may";
  EXPECT_LE(second->records.count(CameraDataKind::Frame) - slow, 4U);
}

TEST_F(PolicyChangeTest, CorrectionsAreTold) {
  start({"--camera", "test:A,320x240"});
  const auto host = this->host();
  host->policy({{"cameraQuality", 300}});
  const QString note = host->awaitChange("policy").value("reason").toString();
  EXPECT_TRUE(note.contains("cameraQuality 300 is outside 0 to 100; using 100"))
      << note.toStdString();
  EXPECT_EQ(host->list().value("policyNotes").toArray(), QJsonArray{note});
  host->policy({{"cameraQuality", 300}});
  host->policy({{"cameraQuality", 50}});
  EXPECT_TRUE(host->list().value("policyNotes").toArray().isEmpty());
  EXPECT_EQ(host->changes().size(), 1U) << "the same correction is told once";
}

TEST_F(PolicyChangeTest, NonsenseIsRefusedAndTheFormerPolicyStays) {
  start({"--camera", "test:A,640x480@30"});
  const auto host = this->host();
  host->policy({{"cameraMaxResolution", "320*320"}});
  watch(*host, "test:A");
  EXPECT_TRUE(host->records.awaitFrameOf({320, 240}));
  host->send(IPC_MSG_POLICY, "nonsense");
  EXPECT_TRUE(host->awaitChange("refused").value("reason").toString().contains("not JSON"));
  host->send(IPC_MSG_POLICY, std::string(1, '\0'));
  host->awaitChange("refused", 2);
  EXPECT_TRUE(host->records.awaitFrameOf({320, 240}));
}

TEST_F(PolicyChangeTest, H264OrAStatedFallBack) {
  start({"--camera", "test:A,320x240@30"});
  const auto host = this->host();
  host->policy({{"cameraEncodeType", "H264"}});
  watch(*host, "test:A");
  const Record frame = host->records.await(CameraDataKind::Frame);
  if (service::h264Available()) {
    EXPECT_EQ(frame.frame.encoding, kEncodingH264);
  } else {
    EXPECT_EQ(frame.frame.encoding, kEncodingMjpg);
    EXPECT_TRUE(host->awaitChange("policy").value("reason").toString().contains("using MJPG"));
  }
}

}  // namespace
}  // namespace lumsar::test
