// Tests of capture.h and camera_stream.h: pictures from a running camera. The test runs the
// io_context itself.
#include "capture/capture.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "capture/encoder.h"
#include "lumsar/camera_data.h"
#include "sources/synthetic.h"
#include "unit/camera-service/capture/capture_fixture.h"

namespace lumsar::test {
namespace {

using namespace service;

TEST_F(CaptureTest, RunsWhileThereIsAReader) {
  CameraStream& camera = stream(syntheticCamera("F,320x240@30"));
  EXPECT_FALSE(camera.running());
  camera.add(reader);
  EXPECT_TRUE(camera.running());
  ASSERT_TRUE(await([&] { return reader.frames >= 3; }));
  EXPECT_EQ(reader.size, (PictureSize{320, 240}));
  EXPECT_GE(reader.age, 0);
  EXPECT_LT(reader.age, 1'000'000) << "µs from capture";
  EXPECT_GT(camera.counters().encodeTime, 0);
  camera.remove(reader);
  EXPECT_FALSE(camera.running());
  const int frames = reader.frames;
  runFor(milliseconds(100));
  EXPECT_EQ(reader.frames, frames);
  EXPECT_TRUE(troubles.empty());
}

TEST_F(CaptureTest, SizeAndQualityChangeWhileRunning) {
  CameraStream& camera = stream(syntheticCamera("F,640x480@30"));
  reader.wanted.rule.quality = 90;
  camera.add(reader);
  ASSERT_TRUE(await([&] { return reader.frames >= 3; }));
  const std::size_t best = reader.bytes;
  reader.wanted.rule.quality = 10;
  camera.refresh();
  EXPECT_TRUE(await([&] { return reader.bytes < best * 3 / 4; })) << reader.bytes << " of " << best;
  reader.wanted.rule.maxWidth = 320;
  camera.refresh();
  EXPECT_TRUE(await([&] { return reader.size == PictureSize{320, 240}; }));
  reader.wanted.rule.maxWidth = 4000;
  camera.refresh();
  EXPECT_TRUE(await([&] { return reader.size == PictureSize{640, 480}; }));
}

TEST_F(CaptureTest, TheBitRateFollowsTheSize) {
  if (!h264Available()) GTEST_SKIP() << "no H.264 encoder is installed";
  CameraStream& camera = stream({"noise", "noise", {"I420", 640, 480, 30, 1}, [] {
                                   return makeSourceBin("videotestsrc is-live=true pattern=snow");
                                 }});
  struct : Reader {
    std::size_t sum = 0;
    bool onFrame(const CapturedFrame& frame) override {
      sum += frame.data.bytes.size();
      ++frames;
      return true;
    }
  } summing;
  const auto bytesAFrame = [&] {
    // What comes first is of the encoder's beginning.
    const int first = summing.frames + 30;
    EXPECT_TRUE(await([&] { return summing.frames >= first; }));
    summing.sum = 0;
    EXPECT_TRUE(await([&] { return summing.frames >= first + 60; }));
    return summing.sum / 60;
  };
  summing.wanted.rule.encoding = SentEncoding::H264;
  camera.add(summing);
  const std::size_t large = bytesAFrame();
  summing.wanted.rule.maxWidth = 320;
  camera.refresh();
  EXPECT_LT(bytesAFrame(), large / 2);
  camera.remove(summing);
}

TEST_F(CaptureTest, AWebcamsFormatsAreDecodedAndScaled) {
  for (const std::string encoding : {"MJPG", "YUY2", "NV12"}) {
    const std::string caps = "video/x-raw,width=640,height=480,framerate=30/1";
    const std::string tail =
        encoding == "MJPG" ? "! jpegenc" : ",format=" + encoding + " ! identity";
    CameraStream& camera =
        stream({"cam:" + encoding, encoding, {encoding, 640, 480, 30, 1}, [=] {
                  return makeSourceBin("videotestsrc is-live=true ! " + caps + tail);
                }});
    reader = Reader();
    reader.wanted.rule.maxWidth = 320;
    camera.add(reader);
    EXPECT_TRUE(await([&] { return reader.frames >= 3; })) << encoding;
    EXPECT_EQ(reader.size, (PictureSize{320, 240})) << encoding;
    camera.remove(reader);
  }
}

TEST_F(CaptureTest, TwoReadersShareOnePictureWithinBothLimits) {
  CameraStream& camera = stream(syntheticCamera("F,640x480@30"));
  Reader large;
  Reader small;
  small.wanted.rule.maxWidth = 160;
  camera.add(large);
  ASSERT_TRUE(await([&] { return large.size == PictureSize{640, 480}; }));
  camera.add(small);
  EXPECT_TRUE(await([&] { return large.size == PictureSize{160, 120}; }));
  EXPECT_TRUE(await([&] { return small.size == PictureSize{160, 120}; }));
  camera.remove(small);
  EXPECT_TRUE(await([&] { return large.size == PictureSize{640, 480}; }));
}

TEST_F(CaptureTest, AReaderThatTakesNoMoreIsRemoved) {
  CameraStream& camera = stream(syntheticCamera("F,320x240@30"));
  Reader one;
  Reader other;
  camera.add(one);
  camera.add(other);
  ASSERT_TRUE(await([&] { return one.frames > 0; }));
  one.takesMore = false;
  ASSERT_TRUE(await([&] { return camera.consumers() == 1; }));
  const int frames = other.frames;
  EXPECT_TRUE(await([&] { return other.frames > frames; }));
  other.takesMore = false;
  EXPECT_TRUE(await([&] { return !camera.running(); }));
}

TEST_F(CaptureTest, AnIntervalIsKept) {
  CameraStream& camera = stream(syntheticCamera("F,160x120@60"));
  reader.wanted.interval = 100'000;
  camera.add(reader);
  ASSERT_TRUE(await([&] { return reader.frames > 0; }));
  reader.frames = 0;
  const auto begin = std::chrono::steady_clock::now();
  ASSERT_TRUE(await([&] { return reader.frames >= 20; }));
  const auto time = std::chrono::steady_clock::now() - begin;
  EXPECT_GE(time, milliseconds(1600));
  EXPECT_LE(time, milliseconds(20'000));
}

TEST_F(CaptureTest, AMovieBeginsAgainAtItsEnd) {
  makeMovie(dir / "m.avi", 160, 120, 6);
  read(fileCamera("m.avi"));
  EXPECT_TRUE(await([&] { return reader.frames >= 20; })) << reader.frames;
  EXPECT_EQ(reader.size, (PictureSize{160, 120}));
  EXPECT_TRUE(troubles.empty());
}

// The stamps that an encoder sees go on where the file's begin again.
TEST_F(CaptureTest, AMovieThatSaysWhereItEndsBeginsAgainInH264) {
  if (!h264Available()) GTEST_SKIP() << "no H.264 encoder is installed";
  runPipeline(
      "videotestsrc num-buffers=6 ! video/x-raw,width=160,height=120,framerate=30/1 ! jpegenc ! "
      "qtmux",
      dir / "m.mov");
  reader.wanted.rule.encoding = SentEncoding::H264;
  read(fileCamera("m.mov"));
  EXPECT_TRUE(await([&] { return reader.frames >= 20; })) << reader.frames;
  EXPECT_TRUE(troubles.empty());
}

TEST_F(CaptureTest, AMovieOfOnePictureKeepsItsRate) {
  makeMovie(dir / "m.avi", 160, 120, 1);
  read(fileCamera("m.avi"));
  ASSERT_TRUE(await([&] { return reader.frames > 0; }));
  reader.frames = 0;
  runFor(milliseconds(1000));
  EXPECT_LE(reader.frames, 33);
  EXPECT_GE(reader.frames, 5);
}

TEST_F(CaptureTest, AFormatThatFailsIsLeftOut) {
  CameraStream& camera =
      stream({"cam:x", "x", {"I420", 160, 120, 30, 1}, [] {
                return makeSourceBin(
                    "videotestsrc is-live=true ! "
                    "video/x-raw,width=160,height=120,framerate=30/1 ! identity");
              }});
  plugged.info.formats.push_back({"I420", 640, 480, 30, 1});  // preferred, and wrong
  camera.add(reader);
  ASSERT_TRUE(await([&] { return !troubles.empty(); }));
  EXPECT_TRUE(await([&] { return reader.frames > 0; }));
  EXPECT_EQ(reader.size, (PictureSize{160, 120}));
  reader.wanted.interval = 100'000;
  camera.refresh();
  EXPECT_TRUE(camera.running()) << "and stays left out";
}

TEST_F(CaptureTest, WhenAllFormatsHaveFailedItBeginsAnew) {
  makePicture(dir / "p.jpg", 64, 64);
  const VirtualCamera source = fileCamera("p.jpg");
  std::filesystem::rename(dir / "p.jpg", dir / "away");
  CameraStream& camera = read(source);
  ASSERT_TRUE(await([&] { return !troubles.empty(); }));
  EXPECT_EQ(camera.planFor({}).source, source.format);
}

TEST_F(CaptureTest, TroubleEndsWithTheLastReader) {
  CameraStream& camera = read({"x", "x", {"I420", 64, 64, 30, 1}, [] { return nullptr; }});
  EXPECT_NE(camera.error(), "");
  camera.remove(reader);
  EXPECT_EQ(camera.error(), "") << "nothing is retried";
}

TEST_F(CaptureTest, ACameraThatFailsIsTriedAgain) {
  makePicture(dir / "p.jpg", 64, 64);
  const VirtualCamera source = fileCamera("p.jpg");
  std::filesystem::rename(dir / "p.jpg", dir / "away");
  CameraStream& camera = read(source);
  ASSERT_TRUE(await([&] { return !troubles.empty(); }));
  EXPECT_FALSE(camera.running());
  std::filesystem::rename(dir / "away", dir / "p.jpg");
  EXPECT_TRUE(await([&] { return reader.frames > 0; })) << "after the first back-off of a second";
  EXPECT_EQ(troubles.size(), 1U) << "told once";
}

TEST_F(CaptureTest, ACameraThatHangsHoldsUpNoOther) {
  const std::string fifo = dir / "fifo";
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);  // opening it waits for a writer
  Reader stuckReader;
  cameras.plug({"stuck", "stuck", {"I420", 64, 64, 30, 1}, [=] {
                  return makeSourceBin("filesrc location=" + fifo + " ! jpegdec");
                }});
  Camera hanging;
  hanging.info.formats = {{"I420", 64, 64, 30, 1}};
  hanging.present = true;
  hanging.info.device = device({"stuck", "stuck", {}, {}});
  CameraStream stuck(io, cameraThreads, hanging, [](const Camera&, const std::string&) {});
  stuck.add(stuckReader);
  CameraStream& camera = read(syntheticCamera("F,320x240@30"));
  camera.add(reader);
  EXPECT_TRUE(await([&] { return reader.frames > 0; }));
  stuck.remove(stuckReader);
  const std::ofstream writer(fifo);  // and lets it go
}

TEST_F(CaptureTest, KeyFramesAreNotMadeWithoutEnd) {
  if (!h264Available()) GTEST_SKIP() << "no H.264 encoder is installed";
  CameraStream& camera = stream(syntheticCamera("F,320x240@30"));
  InsistentReader insistent;
  insistent.camera = &camera;
  insistent.wanted.rule.encoding = service::SentEncoding::H264;
  camera.add(insistent);
  ASSERT_TRUE(await([&] { return insistent.frames >= 45; }));
  EXPECT_GE(insistent.keys.size(), 2U);
  EXPECT_LE(insistent.keys.size(), 10U);
  camera.remove(insistent);
}

TEST_F(CaptureTest, AKeyFrameThatIsAskedForTooEarlyIsMadeLater) {
  if (!h264Available()) GTEST_SKIP() << "no H.264 encoder is installed";
  CameraStream& camera = stream(syntheticCamera("F,320x240@30"));
  struct : Reader {
    CameraStream* camera = nullptr;
    std::vector<int> keys;  // numbers of frames
    bool onFrame(const CapturedFrame& frame) override {
      if (frame.key) keys.push_back(frames);
      if (++frames == 2) camera->requestKeyFrame();
      return true;
    }
  } asking;
  asking.camera = &camera;
  asking.wanted.rule.encoding = service::SentEncoding::H264;
  camera.add(asking);
  ASSERT_TRUE(await([&] { return asking.keys.size() >= 2; }));
  EXPECT_LT(asking.keys[1], 45) << "by itself there is one in sixty";
  camera.remove(asking);
}

// It goes by time, whatever part of the frames is encoded.
TEST_F(CaptureTest, OfFewFramesMoreAreKeyFrames) {
  if (!h264Available()) GTEST_SKIP() << "no H.264 encoder is installed";
  CameraStream& camera = stream(syntheticCamera("F,320x240@30"));
  InsistentReader insistent;
  insistent.camera = &camera;
  insistent.wanted.rule.encoding = service::SentEncoding::H264;
  insistent.wanted.interval = 200'000;
  camera.add(insistent);
  ASSERT_TRUE(await([&] { return insistent.keys.size() >= 5; }));
  EXPECT_LE(insistent.keys[4] - insistent.keys[1], 15) << "500 ms and a frame each";
  camera.remove(insistent);
}

TEST_F(CaptureTest, ACameraWithoutSourceIsTrouble) {
  CameraStream& camera = read({"x", "x", {"I420", 64, 64, 30, 1}, [] { return nullptr; }});
  ASSERT_EQ(troubles.size(), 1U);
  EXPECT_NE(troubles.front().find("no source"), std::string::npos);
  camera.remove(reader);
}

TEST_F(CaptureTest, ACameraThatKeepsFailingIsToldOnceAndRetriedLessOften) {
  int attempts = 0;
  const auto makeNoSource = [&]() -> GstElement* {
    ++attempts;
    return nullptr;
  };
  CameraStream& camera = read({"x", "x", {"I420", 64, 64, 30, 1}, makeNoSource});
  EXPECT_EQ(attempts, 1);
  runFor(milliseconds(1300));
  EXPECT_EQ(attempts, 2);
  runFor(milliseconds(1300));
  EXPECT_EQ(attempts, 2) << "two seconds after the second attempt, not one";
  EXPECT_EQ(troubles.size(), 1U);
  camera.remove(reader);
}

TEST_F(CaptureTest, ACameraWithoutUsableFormatIsTrouble) {
  CameraStream& camera = stream(syntheticCamera("F,320x240"));
  plugged.info.formats.clear();
  camera.add(reader);
  ASSERT_EQ(troubles.size(), 1U);
  EXPECT_NE(troubles.front().find("no format"), std::string::npos);
  camera.remove(reader);
}

TEST_F(CaptureTest, H264WhereThereIsAnEncoder) {
  if (!h264Available()) GTEST_SKIP() << "no H.264 encoder is installed";
  CameraStream& camera = stream(syntheticCamera("F,320x240@30"));
  struct : Reader {
    bool firstIsKey = false;
    Bytes begin;
    bool onFrame(const CapturedFrame& frame) override {
      if (frames == 0) firstIsKey = frame.key;
      if (frames++ == 0) begin.assign(frame.data.bytes.begin(), frame.data.bytes.begin() + 4);
      return true;
    }
  } beginner;
  beginner.wanted.rule.encoding = service::SentEncoding::H264;
  camera.add(beginner);
  ASSERT_TRUE(await([&] { return beginner.frames >= 10; }));
  EXPECT_TRUE(beginner.firstIsKey);
  camera.remove(beginner);
  EXPECT_EQ(beginner.begin, (Bytes{0, 0, 0, 1}));
}

}  // namespace
}  // namespace lumsar::test
