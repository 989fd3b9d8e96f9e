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

TEST(PipewireFormats, OfferAJpegCameraAsItIsFirstAndThenDecoded) {
  const auto first = chosen({kSize, kEncodingMjpg, 33333}, 0);
  ASSERT_TRUE(first);
  EXPECT_EQ(first->encoding, kEncodingMjpg);
  EXPECT_EQ(first->size, kSize);
  const auto second = chosen({kSize, kEncodingMjpg, 33333}, 1);
  ASSERT_TRUE(second);
  EXPECT_TRUE(second->isRaw());
  EXPECT_FALSE(chosen({kSize, kEncodingMjpg, 33333}, 2));
}

TEST(PipewireFormats, OfferH264OnlyAsItIs) {
  const auto first = chosen({kSize, kEncodingH264, 0}, 0);
  ASSERT_TRUE(first);
  EXPECT_EQ(first->encoding, kEncodingH264);
  EXPECT_FALSE(chosen({kSize, kEncodingH264, 0}, 1));
}

TEST(PipewireFormats, OfferNothingOfAnUnknownEncoding) {
  EXPECT_FALSE(chosen({kSize, 0x30323449, 33333}, 0));
}

TEST(PipewireFormats, OfferNoFramesThatAreTooLargeToBeDecoded) {
  const OfferedFormat large{{15360, 8640}, kEncodingMjpg, 33333};
  EXPECT_TRUE(chosen(large, 0));
  EXPECT_FALSE(chosen(large, 1));
}

TEST(PipewireFormats, BuffersAreBoundedWhateverTheSize) {
  EXPECT_EQ(bufferBytes({kSize, 0}), 640U * 480U * 3 / 2);
  EXPECT_EQ(bufferBytes({kSize, kEncodingMjpg}), 640U * 480U * 2);
  EXPECT_EQ(bufferBytes({{1, 1}, kEncodingMjpg}), 64U << 10U);
  EXPECT_EQ(bufferBytes({{65535, 65535}, kEncodingMjpg}), 32U << 20U);
}

TEST(PipewireFormats, WhatIsNoFormatIsNone) {
  EXPECT_FALSE(readFormat(nullptr));
  PodSpace space;
  EXPECT_FALSE(readFormat(bufferPods(space, {kSize, kEncodingMjpg}).front()));
}

}  // namespace
}  // namespace lumsar::test
