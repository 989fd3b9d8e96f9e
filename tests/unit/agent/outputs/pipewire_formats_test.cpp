// What cameras offer through PipeWire, read back as their consumers choose it.
#include "outputs/pipewire/formats.h"

#include <gtest/gtest.h>

#include "lumsar/camera_data.h"

namespace lumsar::test {
namespace {

using namespace agent;

// The choice of a consumer that takes whatever is offered.
std::optional<ChosenFormat> chosen(const OfferedFormat& offered, std::size_t index) {
  PodSpace space;
  const Pods pods = formatPods(space, offered);
  return index < pods.size() ? readFormat(pods[index]) : std::nullopt;
}

constexpr FrameSize kSize = {640, 480};

std::vector<ChosenFormat> allOf(const OfferedFormat& offered) {
  std::vector<ChosenFormat> all;
  while (const auto next = chosen(offered, all.size())) all.push_back(*next);
  return all;
}

TEST(PipewireFormats, OfferACamerasFramesAsTheyAreFirstAndThenDecoded) {
  constexpr FrameSize kSmall = {320, 240};
  constexpr FrameSize kFlat = {640, 360};
  for (const std::uint32_t encoding : {kEncodingMjpg, kEncodingH264}) {
    std::vector<ChosenFormat> expected = {{kSize, encoding}};
    EXPECT_EQ(allOf({kSize, encoding, 33333, false}), expected);
    for (const std::uint32_t raw : {kRawI420, kRawYuy2, kRawNv12}) {
      for (const FrameSize size : {kSize, kFlat, kSmall}) expected.push_back({size, raw});
    }
    EXPECT_EQ(allOf({kSize, encoding, 33333, true}), expected);
  }
}

TEST(PipewireFormats, OfferNoLargerSizesThanTheCameraHas) {
  EXPECT_EQ(allOf({{100, 100}, kEncodingMjpg, 33333, true}).size(), 4U);
  EXPECT_EQ(allOf({{1920, 1080}, kEncodingMjpg, 33333, true}).size(), 1U + 3 * 5);
}

TEST(PipewireFormats, OfferNothingOfAnUnknownEncoding) {
  EXPECT_FALSE(chosen({kSize, 0x30323449, 33333, true}, 0));
}

TEST(PipewireFormats, OfferNoFramesThatAreTooLargeToBeDecoded) {
  const OfferedFormat large{{15360, 8640}, kEncodingMjpg, 33333, true};
  EXPECT_TRUE(chosen(large, 0));
  EXPECT_FALSE(chosen(large, 1));
}

TEST(PipewireFormats, BuffersAreBoundedWhateverTheSize) {
  EXPECT_EQ(bufferBytes({kSize, kRawI420}), 640U * 480U * 3 / 2);
  EXPECT_EQ(bufferBytes({kSize, kRawNv12}), 640U * 480U * 3 / 2);
  EXPECT_EQ(bufferBytes({kSize, kRawYuy2}), 640U * 480U * 2);
  EXPECT_EQ(bufferBytes({kSize, kEncodingMjpg}), 640U * 480U * 2);
  EXPECT_EQ(bufferBytes({{1, 1}, kEncodingMjpg}), 64U << 10U);
  EXPECT_EQ(bufferBytes({{65535, 65535}, kEncodingMjpg}), 32U << 20U);
}

TEST(PipewireFormats, RowsAreThoseOfTheirLayout) {
  EXPECT_EQ(strideOf({kSize, kRawI420}), 640U);
  EXPECT_EQ(strideOf({kSize, kRawNv12}), 640U);
  EXPECT_EQ(strideOf({kSize, kRawYuy2}), 1280U);
  EXPECT_EQ(strideOf({kSize, kEncodingMjpg}), 0U);
}

TEST(PipewireFormats, WhatIsNoFormatIsNone) {
  EXPECT_FALSE(readFormat(nullptr));
  PodSpace space;
  EXPECT_FALSE(readFormat(bufferPods(space, {kSize, kEncodingMjpg}).front()));
}

}  // namespace
}  // namespace lumsar::test
