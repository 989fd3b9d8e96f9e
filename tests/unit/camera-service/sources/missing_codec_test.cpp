// Which package is named for what a file lacks.
#include "sources/missing_codec.h"

#include <gtest/gtest.h>

namespace lumsar::test {
namespace {

using service::missingCodec;

std::string missing(const std::string& element) {
  return missingCodec({"gstreamer|1.0|lumsar|Thing decoder|" + element});
}

TEST(MissingCodecTest, IsNamedWithItsPackage) {
  EXPECT_EQ(missing("decoder-video/x-h264, profile=(string)high"),
            "the Thing decoder is missing; install the package gstreamer1.0-libav");
  EXPECT_TRUE(missing("decoder-video/x-vp9").ends_with("gstreamer1.0-plugins-good"));
  EXPECT_TRUE(missing("decoder-video/x-av1, level=1").ends_with("gstreamer1.0-plugins-bad"));
  EXPECT_TRUE(missing("decoder-video/x-unheard-of").ends_with("gstreamer1.0-libav"));
}

TEST(MissingCodecTest, SoundIsNotMissed) {
  EXPECT_EQ(missing("decoder-audio/mpeg, mpegversion=(int)4"), "");
  EXPECT_EQ(missingCodec({}), "");
}

TEST(MissingCodecTest, OddDetailsDoNoHarm) {
  for (const char* detail : {"", "|", "||||", "gstreamer|1.0", "a|b|c|d|e|f|g"}) {
    EXPECT_FALSE(missingCodec({detail}).empty()) << detail;
  }
}

}  // namespace
}  // namespace lumsar::test
