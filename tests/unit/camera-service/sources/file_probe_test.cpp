// Tests of file_probe.h: pictures, movies and files that are neither. Test's main thread.
#include "sources/file_probe.h"

#include <gtest/gtest.h>

#include "formats/gst_ptr.h"
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

// While it lives, no element decodes `caps`.
class WithoutDecoder {
 public:
  explicit WithoutDecoder(const char* type) {
    const service::GstPtr<GstCaps> caps(gst_caps_new_empty_simple(type));
    GList* all =
        gst_element_factory_list_get_elements(GST_ELEMENT_FACTORY_TYPE_DECODER, GST_RANK_MARGINAL);
    GList* found = gst_element_factory_list_filter(all, caps.get(), GST_PAD_SINK, FALSE);
    for (GList* item = found; item != nullptr; item = item->next) {
      auto* feature = GST_PLUGIN_FEATURE(item->data);
      m_ranks.emplace_back(feature, gst_plugin_feature_get_rank(feature));
      gst_plugin_feature_set_rank(feature, GST_RANK_NONE);
    }
    gst_plugin_feature_list_free(found);
    gst_plugin_feature_list_free(all);
  }
  ~WithoutDecoder() {
    for (const auto& [feature, rank] : m_ranks) gst_plugin_feature_set_rank(feature, rank);
  }

 private:
  std::vector<std::pair<GstPluginFeature*, guint>> m_ranks;  // the registry's
};

TEST_F(FileProbeTest, ACodecThatIsMissingIsNamedWithItsPackage) {
  makeMovie(dir / "m.avi", 320, 240, 5);
  const WithoutDecoder none("image/jpeg");
  const std::string error = probeFile(dir / "m.avi").error;
  EXPECT_TRUE(error.ends_with("is missing; install the package gstreamer1.0-plugins-good"))
      << error;
}

TEST_F(FileProbeTest, WithoutASoundDecoderAMovieIsStillOne) {
  runPipeline(
      "videotestsrc num-buffers=5 ! video/x-raw,framerate=30/1,width=320,height=240 ! jpegenc ! "
      "avimux name=mux audiotestsrc num-buffers=5 ! audio/x-raw,rate=8000,channels=1 ! mulawenc ! "
      "mux. mux.",
      dir / "m.avi");
  const WithoutDecoder none("audio/x-mulaw");
  const FileProbe probe = probeFile(dir / "m.avi");
  EXPECT_EQ(probe.error, "");
  EXPECT_EQ(probe.format.width, 320);
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
