// Tests of file_probe.h: pictures, movies and files that are neither. Test's main thread.
#include "sources/file_probe.h"

#include <gtest/gtest.h>

#include "support/temporary_directory.h"
#include "unit/camera-service/media.h"

namespace lumsar::test {
namespace {

using service::FileProbe;
using service::probeFile;

class FileProbeTest : public ::testing::Test {
 protected:
  FileProbeTest() { gst_init(nullptr, nullptr); }
  TemporaryDirectory dir;
};

TEST_F(FileProbeTest, APicture) {
  makePicture(dir / "p.jpg", 640, 480);
  const FileProbe probe = probeFile(dir / "p.jpg");
  EXPECT_EQ(probe.error, "");
  EXPECT_TRUE(probe.still);
  EXPECT_EQ(probe.format, (service::CameraFormat{"I420", 640, 480, 15, 1}));
}

TEST_F(FileProbeTest, AMovieKeepsItsRate) {
  makeMovie(dir / "m.avi", 320, 240, 5);
  const FileProbe probe = probeFile(dir / "m.avi");
  EXPECT_EQ(probe.error, "");
  EXPECT_FALSE(probe.still);
  EXPECT_EQ(probe.format, (service::CameraFormat{"MJPG", 320, 240, 30, 1}));
}

TEST_F(FileProbeTest, OneOfOtherFramesThanJpegsIsDecoded) {
  makeRawMovie(dir / "raw.avi", 320, 240, 5);
  EXPECT_EQ(probeFile(dir / "raw.avi").format.encoding, "I420");
}

TEST_F(FileProbeTest, OneThatIsTooLargeIsDecodedAndScaled) {
  makeMovie(dir / "large.avi", 2560, 1440, 2);
  const FileProbe probe = probeFile(dir / "large.avi");
  EXPECT_EQ(probe.format, (service::CameraFormat{"I420", 1920, 1080, 30, 1}));
}

TEST_F(FileProbeTest, ALargePictureIsAsLargeAsAWebcams) {
  makePicture(dir / "large.jpg", 4000, 3000);
  const FileProbe probe = probeFile(dir / "large.jpg");
  EXPECT_EQ(probe.format.width, 1440);
  EXPECT_EQ(probe.format.height, 1080);
}

TEST_F(FileProbeTest, AnyNameWillDo) {
  makePicture(dir / "plain.jpg", 64, 64);
  const std::string odd = dir / "it's #1 \"100%\" ü.jpg";
  std::filesystem::rename(dir / "plain.jpg", odd);
  EXPECT_EQ(probeFile(odd).error, "");
}

TEST_F(FileProbeTest, WhatIsNeitherHasAReason) {
  writeFile(dir / "text.jpg", "this is no picture");
  std::ofstream(dir / "empty.jpg");
  for (const char* name : {"text.jpg", "empty.jpg", "missing.jpg"}) {
    EXPECT_NE(probeFile(dir / name).error, "") << name;
  }
}

}  // namespace
}  // namespace lumsar::test
