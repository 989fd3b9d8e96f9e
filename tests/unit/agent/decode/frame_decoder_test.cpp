// Encoded frames as raw ones: every layout, other sizes, streams with gaps and damage.
#include "decode/frame_decoder.h"

#include <gtest/gtest.h>

#include <array>

#include "outputs/placard.h"
#include "unit/agent/outputs/mosaic_jpeg.h"
#include "unit/video/h264_stream.h"

namespace lumsar::test {
namespace {

using namespace agent;

constexpr FrameSize kSize = {64, 48};

Bytes greyJpegOf(double level) {
  return mosaicJpeg(8, 6, [level](int, int) { return Colour{level, level, level}; });
}

struct Decoding {
  explicit Decoding(const RawFormat& raw)
      : format(raw), decoder(raw), frame(rawBytes(raw.encoding, raw.size)) {}

  DecodeResult jpeg(const Bytes& bytes, FrameSize size = kSize) {
    return decode({kEncodingMjpg, size.width, size.height}, bytes);
  }
  DecodeResult h264(const Bytes& bytes, bool isKey = true) {
    return decode({kEncodingH264, 0, 0, isKey ? kFrameIsKey : 0}, bytes);
  }
  DecodeResult decode(DecodeRequest request, const Bytes& bytes) {
    request.bytes = static_cast<std::uint32_t>(bytes.size());
    return decoder.decode(request, bytes, frame);
  }
  // Brightness of a pixel.
  int at(std::size_t x, std::size_t y) const {
    const std::size_t pixel = format.encoding == kRawYuy2 ? 2 * x : x;
    return frame[y * rawStride(format.encoding, format.size) + pixel];
  }
  int middle() const { return at(format.size.width / 2U, format.size.height / 2U); }

  const RawFormat format;
  FrameDecoder decoder;
  Bytes frame;
};

class FrameDecoderLayouts : public testing::TestWithParam<std::uint32_t> {};

TEST_P(FrameDecoderLayouts, HoldAJpeg) {
  Decoding full({GetParam(), kSize, true});
  ASSERT_EQ(full.jpeg(greyJpegOf(200)), DecodeResult::Decoded);
  EXPECT_NEAR(full.middle(), 200, 3);
  EXPECT_NEAR(full.at(0, 0), 200, 3);
  EXPECT_NEAR(full.frame.back(), 128, 3);  // a colour
  Decoding limited({GetParam(), kSize, false});
  ASSERT_EQ(limited.jpeg(greyJpegOf(200)), DecodeResult::Decoded);
  EXPECT_NEAR(limited.middle(), 16 + 200 * 219 / 255.0, 3);
}

TEST_P(FrameDecoderLayouts, HoldH264) {
  if (!H264Stream::isThere()) GTEST_SKIP() << "libavcodec lacks libx264";
  H264Stream stream(kSize.width, kSize.height);
  Decoding limited({GetParam(), kSize, false});
  for (const int level : {50, 120, 200}) {
    ASSERT_EQ(limited.h264(stream.next(level)), DecodeResult::Decoded);
    EXPECT_NEAR(limited.middle(), level, 3);
    EXPECT_NEAR(limited.frame.back(), 128, 3);
  }
  Decoding full({GetParam(), kSize, true});
  ASSERT_EQ(full.h264(stream.next(120, true)), DecodeResult::Decoded);
  EXPECT_NEAR(full.middle(), (120 - 16) * 255 / 219.0, 3);
}

TEST_P(FrameDecoderLayouts, KeepTheAspectRatioOfOtherSizes) {
  Decoding wide({GetParam(), {64, 64}, true});  // black above and below
  ASSERT_EQ(wide.jpeg(greyJpegOf(200)), DecodeResult::Decoded);
  EXPECT_NEAR(wide.middle(), 200, 3);
  EXPECT_NEAR(wide.at(32, 10), 200, 3);
  EXPECT_EQ(wide.at(32, 0), 0);
  EXPECT_EQ(wide.at(32, 63), 0);
  Decoding high({GetParam(), {160, 60}, true});  // black on both sides
  ASSERT_EQ(high.jpeg(greyJpegOf(200)), DecodeResult::Decoded);
  EXPECT_NEAR(high.middle(), 200, 3);
  EXPECT_EQ(high.at(0, 30), 0);
  EXPECT_EQ(high.at(159, 30), 0);
  Decoding odd({GetParam(), {33, 25}, true});
  ASSERT_EQ(odd.jpeg(greyJpegOf(200)), DecodeResult::Decoded);
  EXPECT_NEAR(odd.middle(), 200, 3);
}

INSTANTIATE_TEST_SUITE_P(All, FrameDecoderLayouts, testing::Values(kRawI420, kRawYuy2, kRawNv12),
                         [](const auto& layout) {
                           const std::uint32_t code = layout.param;
                           return std::string(reinterpret_cast<const char*>(&code), 4);
                         });

// As a decoder of others reads it.
TEST(FrameDecoder, ReadsThePlacards) {
  constexpr FrameSize kLarge = {640, 480};
  Decoding decoding({kRawI420, kLarge, true});
  for (const Notice notice : {Notice::CameraStarts, Notice::NoSignal}) {
    ASSERT_EQ(decoding.jpeg(placard(notice, kEncodingMjpg, kLarge), kLarge), DecodeResult::Decoded);
    EXPECT_EQ(decoding.frame, placard(notice, kRawI420, kLarge));
  }
}

TEST(FrameDecoder, FollowsAStreamThatChangesItsSizeAndItsEncoding) {
  if (!H264Stream::isThere()) GTEST_SKIP() << "libavcodec lacks libx264";
  Decoding decoding({kRawI420, kSize, false});
  H264Stream large(128, 96);
  ASSERT_EQ(decoding.h264(large.next(60)), DecodeResult::Decoded);
  EXPECT_NEAR(decoding.middle(), 60, 3);
  H264Stream small(32, 24);
  ASSERT_EQ(decoding.h264(small.next(90)), DecodeResult::Decoded);
  EXPECT_NEAR(decoding.middle(), 90, 3);
  ASSERT_EQ(decoding.jpeg(greyJpegOf(255)), DecodeResult::Decoded);
  EXPECT_NEAR(decoding.middle(), 235, 3);
  ASSERT_EQ(decoding.h264(large.next(120, true)), DecodeResult::Decoded);
  EXPECT_NEAR(decoding.middle(), 120, 3);
}

TEST(FrameDecoder, BeginsWithAKeyFrame) {
  if (!H264Stream::isThere()) GTEST_SKIP() << "libavcodec lacks libx264";
  Decoding decoding({kRawI420, kSize, false});
  H264Stream stream(kSize.width, kSize.height);
  stream.next(50);
  EXPECT_EQ(decoding.h264(stream.next(60), false), DecodeResult::Damaged);
  EXPECT_EQ(decoding.h264(stream.next(70, true)), DecodeResult::Decoded);
  EXPECT_NEAR(decoding.middle(), 70, 3);
}

TEST(FrameDecoder, WaitsForAKeyFrameAfterADamagedOne) {
  if (!H264Stream::isThere()) GTEST_SKIP() << "libavcodec lacks libx264";
  Decoding decoding({kRawI420, kSize, false});
  H264Stream stream(kSize.width, kSize.height);
  ASSERT_EQ(decoding.h264(stream.next(50)), DecodeResult::Decoded);
  Bytes cut = stream.next(60);
  cut.resize(cut.size() / 2);
  EXPECT_EQ(decoding.h264(cut, false), DecodeResult::Damaged);
  EXPECT_EQ(decoding.h264(stream.next(70), false), DecodeResult::Damaged);
  ASSERT_EQ(decoding.h264(stream.next(80, true)), DecodeResult::Decoded);
  EXPECT_NEAR(decoding.middle(), 80, 3);
}

TEST(FrameDecoder, MakesNothingOfWhatIsNoFrame) {
  Decoding decoding({kRawI420, kSize, false});
  for (const auto& garbage : {Bytes{}, Bytes{0, 0, 0, 1}, Bytes(5000, 0xFF), Bytes(5000, 0)}) {
    EXPECT_NE(decoding.h264(garbage), DecodeResult::Decoded);
    EXPECT_EQ(decoding.jpeg(garbage), DecodeResult::Damaged);
    EXPECT_EQ(decoding.decode({fourcc("VP80"), 64, 48}, garbage), DecodeResult::Damaged);
  }
  ASSERT_EQ(decoding.jpeg(greyJpegOf(255)), DecodeResult::Decoded);
}

TEST(FrameDecoder, ReadsOnlyTheBytesOfTheFrame) {
  Decoding decoding({kRawI420, kSize, true});
  const Bytes jpeg = greyJpegOf(200);
  const auto result = [&](std::size_t bytes) {
    return decoding.decoder.decode(
        {kEncodingMjpg, kSize.width, kSize.height, 0, static_cast<std::uint32_t>(bytes)}, jpeg,
        decoding.frame);
  };
  EXPECT_EQ(result(jpeg.size()), DecodeResult::Decoded);
  EXPECT_EQ(result(jpeg.size() / 2), DecodeResult::Damaged);
  EXPECT_EQ(result(jpeg.size() + 1), DecodeResult::Damaged) << "not all of it is there";
}

TEST(FrameDecoder, RefusesImagesThatAreTooLarge) {
  if (!H264Stream::isThere()) GTEST_SKIP() << "libavcodec lacks libx264";
  Decoding decoding({kRawI420, kSize, false});
  H264Stream huge(8192, 4320);
  EXPECT_EQ(decoding.h264(huge.next(50)), DecodeResult::Damaged);
  EXPECT_EQ(decoding.jpeg(greyJpegOf(50), {16384, 16384}), DecodeResult::Damaged);
}

}  // namespace
}  // namespace lumsar::test
