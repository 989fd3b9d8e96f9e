// VideoSink on a fake device: wanted while a program has it open, pictures as they are, formats,
// devices that are shared out, broken or unplugged. And who really has a file open.
#include <fcntl.h>
#include <gtest/gtest.h>

#include <atomic>

#include "outputs/v4l2/video_output.h"
#include "protocol/jpeg_segments.h"
#include "support/eventually.h"
#include "support/messages.h"
#include "support/process.h"
#include "support/temporary_directory.h"
#include "support/text.h"
#include "unit/agent/outputs/video_fixture.h"

namespace lumsar::test {
namespace {

using namespace agent;

Bytes startsJpeg(std::uint16_t width, std::uint16_t height) {
  return placard(Notice::CameraStarts, kEncodingMjpg, {width, height});
}

TEST_F(VideoSinkTest, IsACameraFromTheBeginningAndWantedWhileOpen) {
  nodes({"/dev/video0"});
  const auto sink = open("front");
  ASSERT_TRUE(eventually([&] { return written("/dev/video0").size() == 1; }));
  EXPECT_EQ(written("/dev/video0")[0], startsJpeg(640, 480));
  EXPECT_FALSE(sink->hasConsumer());
  video.setReaders("/dev/video0", 1);
  ASSERT_TRUE(eventually([&] { return sink->hasConsumer(); }));
  sink->deliver(frame(blankJpeg()));
  ASSERT_TRUE(eventually([&] { return sink->report().delivered == 1; }));
  EXPECT_EQ(written("/dev/video0").back(), blankJpeg());
  video.setReaders("/dev/video0", 0);
  ASSERT_TRUE(eventually([&] { return !sink->hasConsumer(); }));
  EXPECT_TRUE(eventually([&] { return written("/dev/video0").back() == startsJpeg(640, 480); }));
  EXPECT_GE(changes, 2);
}

TEST_F(VideoSinkTest, AReaderIsToldWhenThereIsNoSignal) {
  const Bytes noSignal = placard(Notice::NoSignal, kEncodingMjpg, {640, 480});
  auto sink = openWithConsumer();
  sink->deliver(frame(blankJpeg()));
  ASSERT_TRUE(eventually([&] { return written("/dev/video0").back() == blankJpeg(); }));
  EXPECT_TRUE(eventually([&] { return written("/dev/video0").back() == noSignal; }));
  sink->deliver(frame(blankJpeg()));
  ASSERT_TRUE(eventually([&] { return written("/dev/video0").back() == blankJpeg(); }));
  sink.reset();
  EXPECT_EQ(written("/dev/video0").back(), noSignal);
}

TEST_F(VideoSinkTest, AProgramThatOnlyAsksWhatItIsDoesNotStartIt) {
  nodes({"/dev/video0"});
  const auto sink = open("front");
  ASSERT_TRUE(deviceIs(*sink, "/dev/video0"));
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  video.setReaders("/dev/video0", 1);
  video.setReaders("/dev/video0", 0);
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  EXPECT_EQ(changes, 0);
}

TEST_F(VideoSinkTest, SleepsUntilSomethingHappens) {
  nodes({"/dev/video0"});
  const auto sink = open("front");
  ASSERT_TRUE(deviceIs(*sink, "/dev/video0"));
  ASSERT_TRUE(eventually([&] { return video.waits > 0; }));
  const int before = video.waits;
  std::this_thread::sleep_for(std::chrono::seconds(3));
  EXPECT_LE(video.waits - before, 1);
}

TEST_F(VideoSinkTest, ChangesTheFormatWhenNobodyElseHasItOpen) {
  const auto sink = openWithConsumer();
  sink->deliver(frame(blankJpeg(), 320, 240));  // smaller: passes through
  ASSERT_TRUE(eventually([&] { return sink->report().delivered == 1; }));
  EXPECT_EQ(video.ask([](auto& all) { return all["/dev/video0"].format.width; }), 640);
  video.setReaders("/dev/video0", 0);
  EXPECT_TRUE(eventually(
      [&] { return video.ask([](auto& all) { return all["/dev/video0"].format.width; }) == 320; }));
  EXPECT_TRUE(eventually([&] { return written("/dev/video0").back() == startsJpeg(320, 240); }));
}

TEST_F(VideoSinkTest, PicturesThatDoNotFitAreDroppedWithAReason) {
  const auto sink = openWithConsumer(16, 16);
  sink->deliver(frame(blankJpeg(5000)));
  ASSERT_TRUE(eventually([&] { return sink->report().dropped == 1; }));
  EXPECT_NE(sink->report().error.find("no longer fit"), std::string::npos);
}

TEST_F(VideoSinkTest, EachCameraHasItsDeviceAndGetsItAgain) {
  nodes({"/dev/video0", "/dev/video1", "/dev/video2"});
  auto front = open("front");
  ASSERT_TRUE(deviceIs(*front, "/dev/video0"));
  auto back = open("back");
  ASSERT_TRUE(deviceIs(*back, "/dev/video1"));
  front.reset();
  back.reset();
  back = open("back");
  EXPECT_TRUE(deviceIs(*back, "/dev/video1"));
  const auto third = open("third");
  EXPECT_TRUE(deviceIs(*third, "/dev/video2"));
  front = open("front");
  EXPECT_TRUE(deviceIs(*front, "/dev/video0"));
}

TEST_F(VideoSinkTest, SaysThatThereIsNoFreeDeviceAndTakesOneLater) {
  nodes({});
  const auto sink = open("front");
  ASSERT_TRUE(eventually([&] { return !sink->report().error.empty(); }));
  EXPECT_NE(sink->report().error.find("no free v4l2loopback device"), std::string::npos);
  video.ask([](auto& all) { return all["/dev/video7"].readers; });
  EXPECT_TRUE(deviceIs(*sink, "/dev/video7"));
}

TEST_F(VideoSinkTest, SaysAtTheStartThatThereIsNoDevice) {
  testing::internal::CaptureStderr();
  nodes({});
  const std::string none = testing::internal::GetCapturedStderr();
  EXPECT_TRUE(has(none, "there is no v4l2loopback device yet")) << none;
  EXPECT_TRUE(has(none, "modprobe v4l2loopback")) << none;
  testing::internal::CaptureStderr();
  nodes({"/dev/video0"});
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST_F(VideoSinkTest, LeavesABrokenDeviceForAnother) {
  nodes({"/dev/video0", "/dev/video1"});
  video.nodes["/dev/video0"].broken = true;
  const auto sink = open("front");
  EXPECT_TRUE(deviceIs(*sink, "/dev/video1"));
}

TEST_F(VideoSinkTest, EachBrokenDeviceIsSaidOnce) {
  nodes({"/dev/video0", "/dev/video1"});
  video.nodes["/dev/video0"].broken = true;
  video.nodes["/dev/video1"].broken = true;
  testing::internal::CaptureStderr();
  const auto sink = open("front");
  ASSERT_TRUE(eventually([&] { return video.searches >= 3; }));
  const std::string log = testing::internal::GetCapturedStderr();
  EXPECT_EQ(occurrences(log, "cannot use /dev/video0"), 1) << log;
  EXPECT_EQ(occurrences(log, "cannot use /dev/video1"), 1) << log;
}

TEST_F(VideoSinkTest, AnUnpluggedDeviceIsGivenUp) {
  const auto sink = openWithConsumer();
  video.ask([](auto& all) { return all["/dev/video0"].unplugged = true; });
  sink->deliver(frame(blankJpeg()));
  EXPECT_TRUE(eventually([&] { return sink->report().dropped == 1 && !sink->hasConsumer(); }));
}

TEST(CountOpeners, SeesOtherProgramsButNotThisOne) {
  const TemporaryDirectory folder;
  const std::string path = folder / "file";
  writeFile(path, "x");
  const base::UniqueFd own(open(path.c_str(), O_RDONLY | O_CLOEXEC));
  bool blind = false;
  EXPECT_EQ(countOpeners(path, blind), 0);
  {
    const Process other({"/bin/sh", "-c", "exec 7<" + path + "; exec sleep 30"});
    EXPECT_TRUE(eventually([&] { return countOpeners(path, blind) == 1; }));
  }
  EXPECT_EQ(countOpeners(path, blind), 0);
  EXPECT_EQ(countOpeners(folder / "missing", blind), 0);
}

// A container or a chroot has its own /dev, below one of ours.
TEST(CountOpeners, SeesProgramsThatCallTheDirectoryOtherwise) {
  const TemporaryDirectory folder;
  writeFile(folder / "video9", "x");
  std::filesystem::create_directory(folder / "container");
  const std::string inside = folder / "container/video9";
  std::filesystem::create_hard_link(folder / "video9", inside);
  const Process other({"/bin/sh", "-c", "exec 7<" + inside + "; exec sleep 30"});
  bool blind = false;
  EXPECT_TRUE(eventually([&] { return countOpeners(folder / "video9", blind) == 1; }));
}

TEST(KernelVideo, RefusesWhatIsNoLoopbackDevice) {
  std::string why;
  EXPECT_EQ(kernelVideoSystem()->open("/dev/null", why), nullptr);
  EXPECT_NE(why.find("not a v4l2loopback device"), std::string::npos);
  EXPECT_EQ(kernelVideoSystem()->open("/dev/missing", why), nullptr);
  EXPECT_EQ(why, "No such file or directory");
}

}  // namespace
}  // namespace lumsar::test
