// JPEGs as I420: every way in which colours are sampled, sizes that are odd, and what is refused.
#include "decode/jpeg_decoder.h"

#include <gtest/gtest.h>
#include <turbojpeg.h>

#include <algorithm>
#include <array>

#include "support/messages.h"

namespace lumsar::test {
namespace {

using agent::FrameSize;
using agent::JpegDecoder;

// Dark on the left, light on the right, and of one colour: its planes are known.
constexpr unsigned char kDark = 60;
constexpr unsigned char kLight = 180;
constexpr unsigned char kBlue = 90;
constexpr unsigned char kRed = 170;

Bytes jpegOf(FrameSize size, int sampling, int flags = 0) {
  const auto stride = static_cast<std::size_t>(tjPlaneWidth(0, size.width, sampling));
  const auto rows = static_cast<std::size_t>(tjPlaneHeight(0, size.height, sampling));
  Bytes brightness(stride * rows);
  for (std::size_t i = 0; i < brightness.size(); ++i) {
    brightness[i] = i % stride < size.width / 2U ? kDark : kLight;
  }
  const Bytes blue(brightness.size(), kBlue);
  const Bytes red(brightness.size(), kRed);
  std::array<const unsigned char*, 3> planes = {brightness.data(), blue.data(), red.data()};
  unsigned char* to = nullptr;
  unsigned long length = 0;
  const tjhandle encoder = tjInitCompress();
  EXPECT_EQ(tjCompressFromYUVPlanes(encoder, planes.data(), size.width, nullptr, size.height,
                                    sampling, &to, &length, 95, flags),
            0)
      << tjGetErrorStr2(encoder);
  const Bytes jpeg(to, to + length);
  tjFree(to);
  tjDestroy(encoder);
  return jpeg;
}

void expectDecoded(FrameSize size, int sampling) {
  Bytes frame(agent::i420Bytes(size));
  ASSERT_TRUE(JpegDecoder().decode(jpegOf(size, sampling), size, frame));
  const std::size_t pixels = std::size_t{size.width} * size.height;
  const std::size_t colours = (frame.size() - pixels) / 2;
  for (std::size_t row = 0; row < size.height; ++row) {
    EXPECT_NEAR(frame[row * size.width], kDark, 3);
    EXPECT_NEAR(frame[row * size.width + size.width - 1], kLight, 3);
  }
  const bool isGrey = sampling == TJSAMP_GRAY;
  for (std::size_t i = 0; i < colours; ++i) {
    ASSERT_NEAR(frame[pixels + i], isGrey ? 128 : kBlue, 3);
    ASSERT_NEAR(frame[pixels + colours + i], isGrey ? 128 : kRed, 3);
  }
}

class Sampling : public testing::TestWithParam<int> {};

TEST_P(Sampling, IsMadeThatOfI420) {
  for (const FrameSize size : {FrameSize{64, 48}, {66, 50}, {67, 51}, {33, 1}}) {
    SCOPED_TRACE(testing::Message() << size.width << 'x' << size.height);
    expectDecoded(size, GetParam());
  }
}

INSTANTIATE_TEST_SUITE_P(All, Sampling,
                         testing::Values(TJSAMP_444, TJSAMP_422, TJSAMP_420, TJSAMP_GRAY,
                                         TJSAMP_440, TJSAMP_411));

// The same, but for what its frame header says.
Bytes withSize(Bytes jpeg, FrameSize size) {
  constexpr std::array<unsigned char, 2> kFrameHeader = {0xFF, 0xC0};
  const auto at =
      std::search(jpeg.begin(), jpeg.end(), kFrameHeader.begin(), kFrameHeader.end()) + 5;
  const unsigned sides[] = {size.height, size.width};
  for (std::ptrdiff_t i = 0; i < 4; ++i) {
    at[i] = static_cast<unsigned char>(sides[i / 2] >> (i % 2 == 0 ? 8U : 0U));
  }
  return jpeg;
}

class JpegDecoderTest : public testing::Test {
 protected:
  static constexpr FrameSize kSize = {64, 48};
  bool decodes(View jpeg) { return decoder.decode(jpeg, kSize, frame); }

  JpegDecoder decoder;
  Bytes frame = Bytes(agent::i420Bytes(kSize));
  const Bytes good = jpegOf(kSize, TJSAMP_422);
};

TEST_F(JpegDecoderTest, RefusesWhatIsNoJpegAndDecodesTheNext) {
  Bytes cut(good.begin(), good.begin() + static_cast<std::ptrdiff_t>(good.size() * 2 / 3));
  Bytes patched = join({cut, Bytes{0xFF, 0xD9}});
  for (const Bytes& bad : {Bytes(), Bytes{0xFF}, blankJpeg(), noise(5000, 1), cut, patched}) {
    EXPECT_FALSE(decodes(bad)) << bad.size();
  }
  EXPECT_TRUE(decodes(good));
}

TEST_F(JpegDecoderTest, RefusesAnotherSizeThanTheFramesHave) {
  for (const FrameSize size : {FrameSize{64, 47}, {63, 48}, {65, 48}, {128, 96}, {8, 8}}) {
    EXPECT_FALSE(decodes(jpegOf(size, TJSAMP_420)));
  }
  EXPECT_FALSE(decodes(withSize(good, {65535, 65535}))) << "4 Gpixel in a few bytes";
}

TEST_F(JpegDecoderTest, RefusesTooSmallARoomAndTooLargeAFrame) {
  frame.pop_back();
  EXPECT_FALSE(decodes(good));
  const FrameSize huge = {15360, 8640};
  EXPECT_FALSE(agent::isDecodable(huge));
  EXPECT_FALSE(decoder.decode(withSize(good, huge), huge, frame));
  EXPECT_FALSE(agent::isDecodable({0, 48}));
}

// As cameras make it that fill their transfers up.
TEST_F(JpegDecoderTest, AllowsBytesBetweenTheImageAndItsEnd) {
  for (const Bytes& more : {Bytes{0x12}, Bytes(3), Bytes(20, 0x12)}) {
    Bytes padded = good;
    padded.insert(padded.end() - 2, more.begin(), more.end());
    EXPECT_TRUE(decodes(padded)) << more.size();
    EXPECT_NEAR(frame[0], kDark, 3);
    EXPECT_NEAR(frame[64 * 48 - 1], kLight, 3);
  }
}

// Three components of 64 by 48 pixels: all in each scan, or each in scans of its own.
Bytes withScans(int scans, bool isTogether) {
  const auto bytes = [](std::initializer_list<int> values) {
    return Bytes(values.begin(), values.end());
  };
  const auto table = [&](int number) {  // of one code: a zero bit for the value 0
    return bytes({0xFF, 0xC4, 0, 20, number, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0});
  };
  Bytes jpeg =
      join({bytes({0xFF, 0xD8, 0xFF, 0xDB, 0, 67, 0}), Bytes(64, 16),
            bytes({0xFF, 0xC0, 0, 17, 8, 0, 48, 0, 64, 3, 1, 0x11, 0, 2, 0x11, 0, 3, 0x11, 0}),
            table(0x00), table(0x10)});
  for (int i = 0; i < scans; ++i) {  // two bits for each of 48 blocks of a component
    const Bytes scan =
        isTogether ? join({bytes({0xFF, 0xDA, 0, 12, 3, 1, 0, 2, 0, 3, 0, 0, 63, 0}), Bytes(36)})
                   : join({bytes({0xFF, 0xDA, 0, 8, 1, i % 3 + 1, 0, 0, 63, 0}), Bytes(12)});
    jpeg = join({jpeg, scan});
  }
  return join({jpeg, bytes({0xFF, 0xD9})});
}

// Each scan is work on the whole image, and costs a sender a few bytes.
TEST_F(JpegDecoderTest, RefusesMoreThanOneScan) {
  EXPECT_TRUE(decodes(withScans(1, true)));
  EXPECT_FALSE(decodes(withScans(2, true)));
  EXPECT_FALSE(decodes(withScans(3, false)));
  EXPECT_FALSE(decodes(jpegOf(kSize, TJSAMP_420, TJFLAG_PROGRESSIVE)));
}

TEST_F(JpegDecoderTest, TakesNoTablesFromTheJpegBefore) {
  const Bytes whole = withScans(1, true);
  Bytes bare = whole;
  bare.erase(bare.begin() + 2, bare.begin() + 71);
  EXPECT_TRUE(decodes(whole));
  EXPECT_FALSE(decodes(bare));
}

TEST_F(JpegDecoderTest, FindsTheScanBehindWhateverSegmentsThereAre) {
  const auto with = [&](const Bytes& segments) {
    return join({View(good).first(2), segments, View(good).subspan(2)});
  };
  EXPECT_TRUE(decodes(with({0xFF, 0xE1, 0, 6, 0xFF, 0xC2, 0xFF, 0xDA})));
  EXPECT_TRUE(decodes(with({0xFF, 0xFF, 0xFF, 0xFE, 0, 2}))) << "filled up";
  EXPECT_FALSE(decodes(with({0xFF, 0xE1, 0, 1}))) << "shorter than its own length";
  EXPECT_FALSE(decodes(with({0xFF, 0xE1, 0xFF, 0xFF}))) << "longer than the rest";
  EXPECT_FALSE(decodes(with({0xFF, 0xD0})));
}

}  // namespace
}  // namespace lumsar::test
