// Tests of camera_stream.h and encoder.h: a running camera whose consumers are behind thin lines.
// The test runs the io_context itself.
#include "capture/encoder.h"
#include "sources/synthetic.h"
#include "unit/camera-service/capture/capture_fixture.h"

namespace lumsar::test {
namespace {

using namespace service;

constexpr std::int64_t kJustFull = 1;

class ThinLineTest : public CaptureTest {
 protected:
  CameraStream& readThree(const std::string& camera, SentEncoding encoding = SentEncoding::Mjpg) {
    CameraStream& running = stream(syntheticCamera(camera));
    reader.wanted.rule.encoding = encoding;
    running.add(reader);
    EXPECT_TRUE(await([this] { return reader.frames >= 3; }));
    return running;
  }
  // Far fewer than a camera of 30 frames a second delivers in this time.
  bool hardlyFlows() {
    runFor(milliseconds(200));  // what was encoded already
    const int before = reader.frames;
    runFor(milliseconds(2000));
    return reader.frames - before < 10;
  }
  bool flows() {
    const int before = reader.frames;
    return await([&] { return reader.frames >= before + 20; });
  }
};

TEST_F(ThinLineTest, FramesAreHeldBackWhileTheLineIsFull) {
  CameraStream& camera = readThree("F,320x240@30");
  reader.fullFor = kJustFull;
  camera.updateHold();
  EXPECT_TRUE(hardlyFlows());
  const int frames = reader.frames;
  EXPECT_TRUE(await([&] { return reader.frames > frames; })) << "a sign of life";
  reader.fullFor = 0;
  camera.updateHold();
  EXPECT_TRUE(flows());
  EXPECT_TRUE(troubles.empty());
  camera.remove(reader);
}

TEST_F(ThinLineTest, TheLastReaderMayLeaveWithTheFirstOfTwoFrames) {
  CameraStream& camera = readThree("F,320x240@30");
  std::this_thread::sleep_for(milliseconds(300));  // both wait
  reader.takesMore = false;
  EXPECT_TRUE(await([&] { return !camera.running(); }));
  EXPECT_TRUE(troubles.empty());
}

TEST_F(ThinLineTest, JpegIsForThoseWithRoom) {
  CameraStream& camera = readThree("F,320x240@30");
  Reader other;
  camera.add(other);
  reader.fullFor = kJustFull;
  camera.updateHold();
  EXPECT_TRUE(flows());
  other.fullFor = kJustFull;
  camera.updateHold();
  EXPECT_TRUE(hardlyFlows());
  camera.remove(other);
  camera.remove(reader);
}

TEST_F(ThinLineTest, H264WaitsAWhileForTheSlowest) {
  if (!h264Available()) GTEST_SKIP() << "no H.264 encoder is installed";
  CameraStream& camera = readThree("F,320x240@30", SentEncoding::H264);
  Reader other;
  other.wanted = reader.wanted;
  camera.add(other);
  other.fullFor = kJustFull;
  camera.updateHold();
  EXPECT_TRUE(hardlyFlows());
  other.fullFor = kLongestWait + 1;
  camera.updateHold();
  EXPECT_TRUE(flows());
  camera.remove(other);
  camera.remove(reader);
}

TEST_F(ThinLineTest, ThinnerFramesWithoutStartingAgain) {
  for (const SentEncoding encoding : {SentEncoding::Mjpg, SentEncoding::H264}) {
    if (encoding == SentEncoding::H264 && !h264Available()) continue;
    reader = {};
    const std::string name = encoding == SentEncoding::H264 ? "G" : "F";
    CameraStream& camera = readThree(name + ",640x480@30", encoding);
    EXPECT_FALSE(camera.plan()->isThinned);
    reader.wanted.lineRate = 1000;
    ASSERT_TRUE(await([&] { return camera.plan()->isThinned; }));
    EXPECT_EQ(camera.plan()->width, 160);
    EXPECT_EQ(camera.plan()->bitRate, encoding == SentEncoding::H264 ? 8000 : 0);
    EXPECT_EQ(camera.treatment(), "encoded: the camera delivers I420");
    if (encoding == SentEncoding::Mjpg) {
      EXPECT_TRUE(await([&] { return reader.size == PictureSize{160, 120}; }));
    }
    EXPECT_GT(camera.wantedRate(), 1000) << "as without a limit";
    EXPECT_EQ(camera.planFor(reader.wanted).width, 640) << "as it is announced";
    const int frames = reader.frames;
    EXPECT_TRUE(await([&] { return reader.frames >= frames + 5; }));
    reader.wanted.lineRate = 0;
    ASSERT_TRUE(await([&] { return !camera.plan()->isThinned; }));
    camera.remove(reader);
  }
}

TEST_F(ThinLineTest, OnAThinLineKeyFramesAreRarer) {
  if (!h264Available()) GTEST_SKIP() << "no H.264 encoder is installed";
  CameraStream& camera = stream(syntheticCamera("F,320x240@30"));
  InsistentReader insistent;
  insistent.camera = &camera;
  insistent.wanted.rule.encoding = SentEncoding::H264;
  insistent.wanted.lineRate = 10'000;
  camera.add(insistent);
  ASSERT_TRUE(await([&] { return insistent.keyTimes.size() >= 4; }));
  EXPECT_GE(insistent.keyTimes[3] - insistent.keyTimes[1], 1'700'000U) << "µs";
  camera.remove(insistent);
}

}  // namespace
}  // namespace lumsar::test
