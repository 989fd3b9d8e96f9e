// Video devices with raw frames: the format that the user has chosen, of JPEG and H.264 cameras.
#include <gtest/gtest.h>

#include "unit/agent/outputs/mosaic_jpeg.h"
#include "unit/agent/outputs/video_fixture.h"
#include "unit/video/h264_stream.h"

namespace lumsar::test {
namespace {

constexpr FrameSize kSize = {64, 48};
constexpr const char* kDevice = "/dev/video0";

class DecodedVideo : public VideoSinkTest {
 protected:
  void SetUp() override {
    if (!Decoder::isUsable()) GTEST_SKIP() << Decoder::path() << " was not built";
    if (!H264Stream::isThere()) GTEST_SKIP() << "libavcodec lacks libx264";
    stream.emplace(kSize.width, kSize.height);
  }
  std::unique_ptr<Sink> consumed(std::uint32_t encoding) {
    nodes({kDevice});
    auto sink = open("front", kSize.width, kSize.height, encoding);
    EXPECT_TRUE(deviceIs(*sink, kDevice));
    video.setReaders(kDevice, 1);
    EXPECT_TRUE(eventually([&] { return sink->hasConsumer(); }));
    return sink;
  }
  std::uint32_t deviceEncoding() {
    return video.ask([](auto& all) { return all[kDevice].format.encoding; });
  }
  FramePtr h264(int level, bool isKey) {
    auto frame = std::make_shared<Frame>();
    frame->format = {sequence++, kSize.width, kSize.height, kEncodingH264, isKey ? kFrameIsKey : 0};
    frame->data = stream->next(level, isKey);
    return frame;
  }
  // With key frames, for a decoder that has dropped some while it started.
  FramePtr often(int level) { return h264(level, sequence % 4 == 0); }
  static FramePtr jpeg(double level) {
    return frame(mosaicJpeg(8, 6,
                            [level](int, int) {
                              return Colour{level, level, level};
                            }),
                 kSize.width, kSize.height);
  }
  // Delivers what `next` makes until a raw frame of this brightness has been written.
  bool shows(Sink& sink, std::uint32_t encoding, int level, const std::function<FramePtr()>& next) {
    return eventually([&] {
      sink.deliver(next());
      std::this_thread::sleep_for(milliseconds(10));
      const auto frames = written(kDevice);
      const auto& last = frames.back();
      return last.size() == rawBytes(encoding, kSize) && std::abs(last[0] - level) <= 3;
    });
  }

  std::optional<H264Stream> stream;
  std::uint32_t sequence = 0;
};

TEST_F(DecodedVideo, AnH264CameraIsDecodedOfItsOwn) {
  const auto sink = consumed(kEncodingH264);
  EXPECT_EQ(deviceEncoding(), kRawI420);
  EXPECT_EQ(written(kDevice).front(),
            std::vector<unsigned char>(rawBytes(kRawI420, kSize), 128));  // grey
  EXPECT_TRUE(shows(*sink, kRawI420, 50, [&] { return often(50); }));
  EXPECT_TRUE(shows(*sink, kRawI420, 180, [&] { return often(180); }));
  EXPECT_FALSE(sink->needsKeyFrame());
  EXPECT_EQ(sink->report().error, "");
}

TEST_F(DecodedVideo, AJpegCameraIsNot) {
  const auto sink = consumed(kEncodingMjpg);
  EXPECT_EQ(deviceEncoding(), kEncodingMjpg);
}

TEST_F(DecodedVideo, AnH264CameraIsPassedThroughIfItIsToBe) {
  format = DeviceFormat::Camera;
  const auto sink = consumed(kEncodingH264);
  EXPECT_EQ(deviceEncoding(), kEncodingH264);
  const FramePtr frame = h264(50, true);
  sink->deliver(frame);
  ASSERT_TRUE(eventually([&] { return !written(kDevice).empty(); }));
  EXPECT_EQ(written(kDevice).back(), frame->data);
}

TEST_F(DecodedVideo, HasTheFormatThatIsAskedFor) {
  for (const auto& [asked, encoding] : {std::pair{DeviceFormat::I420, kRawI420},
                                        {DeviceFormat::Yuy2, kRawYuy2},
                                        {DeviceFormat::Nv12, kRawNv12}}) {
    format = asked;
    {
      const auto sink = consumed(kEncodingMjpg);
      EXPECT_EQ(deviceEncoding(), encoding);
      EXPECT_TRUE(shows(*sink, encoding, 235, [] { return jpeg(255); }));
    }
    video.nodes.clear();
  }
}

TEST_F(DecodedVideo, AfterAMissingFrameAKeyFrameIsNeeded) {
  const auto sink = consumed(kEncodingH264);
  ASSERT_TRUE(shows(*sink, kRawI420, 50, [&] { return often(50); }));
  ++sequence;
  sink->deliver(h264(100, false));
  ASSERT_TRUE(eventually([&] { return sink->needsKeyFrame(); }));
  EXPECT_TRUE(eventually([&] { return sink->report().dropped >= 1; }));
  EXPECT_TRUE(shows(*sink, kRawI420, 150, [&] { return often(150); }));
  EXPECT_FALSE(sink->needsKeyFrame());
}

TEST_F(DecodedVideo, WhatCannotBeDecodedIsSaidAndTheNextFrameShown) {
  format = DeviceFormat::I420;
  const auto sink = consumed(kEncodingMjpg);
  sink->deliver(frame(blankJpeg(), kSize.width, kSize.height));
  ASSERT_TRUE(eventually([&] { return !sink->report().error.empty(); }));
  EXPECT_EQ(sink->report().error, "a JPEG is damaged or does not have the announced size");
  EXPECT_TRUE(shows(*sink, kRawI420, 235, [] { return jpeg(255); }));
  EXPECT_EQ(sink->report().error, "");
}

}  // namespace
}  // namespace lumsar::test
