// Previews: small images of what goes to the VM, and none of what cannot be decoded.
#include "preview/previews.h"

#include <gtest/gtest.h>

#include <atomic>
#include <vector>

#include "preview/jpeg_image.h"
#include "support/eventually.h"
#include "unit/viewer/preview_frames.h"

namespace lumsar::test {
namespace {

using namespace viewer;

ImageSize sizeOf(const Image& image) {
  return {gdk_pixbuf_get_width(image.get()), gdk_pixbuf_get_height(image.get())};
}

// Behind the first marker of a frame's header: its length, a byte, then height and width.
Bytes claimingSize(Bytes jpeg, unsigned char highByte) {
  for (std::size_t i = 0; i + 8 < jpeg.size(); ++i) {
    if (jpeg[i] != 0xFF || jpeg[i + 1] != 0xC0) continue;
    jpeg[i + 5] = jpeg[i + 7] = highByte;
    return jpeg;
  }
  return {};
}

TEST(SizeWithin, KeepsTheShapeAndEnlargesNothing) {
  constexpr ImageSize kSpace = previewSize(1);
  EXPECT_EQ(sizeWithin(kSpace, {1920, 1080}), (ImageSize{96, 54}));
  EXPECT_EQ(sizeWithin(kSpace, {640, 480}), (ImageSize{72, 54}));
  EXPECT_EQ(sizeWithin(kSpace, {480, 640}), (ImageSize{41, 54}));
  EXPECT_EQ(sizeWithin(kSpace, {5000, 10}), (ImageSize{96, 1}));
  EXPECT_EQ(sizeWithin(kSpace, {64, 48}), (ImageSize{64, 48}));
  EXPECT_EQ(sizeWithin(kSpace, {4096, 2304}), (ImageSize{96, 54}));
  EXPECT_EQ(sizeWithin(kSpace, {4096, 2305}), ImageSize{});
  EXPECT_EQ(sizeWithin(kSpace, {65500, 65500}), ImageSize{});
  EXPECT_EQ(sizeWithin(kSpace, {0, 480}), ImageSize{});
}

TEST(JpegImage, IsAsLargeAsItsPlaceOnTheScreen) {
  const Bytes jpeg = jpegOf(kRed);
  const Image image = decodeJpeg(jpeg, previewSize(1));
  ASSERT_TRUE(image);
  EXPECT_EQ(sizeOf(image), (ImageSize{72, 54}));
  EXPECT_TRUE(isLike(kRed, image));
  EXPECT_EQ(sizeOf(decodeJpeg(jpeg, previewSize(2))), (ImageSize{144, 108}));
}

TEST(JpegImage, RefusesWhatIsDamagedTooLargeOrAnotherFormat) {
  const Bytes jpeg = jpegOf(kRed);
  const auto isDecoded = [](View bytes) { return decodeJpeg(bytes, previewSize(1)) != nullptr; };
  EXPECT_TRUE(isDecoded(jpeg));
  for (std::size_t size = 0; size < jpeg.size() - 2; size += 7) {
    EXPECT_FALSE(isDecoded(View(jpeg).first(size))) << size;
  }
  EXPECT_FALSE(isDecoded(blankJpeg()));
  EXPECT_FALSE(isDecoded(claimingSize(jpeg, 0x20)));
  EXPECT_FALSE(isDecoded(encoded(imageOf(kRed, 64, 48), "png")));
}

struct PreviewsTest : testing::Test {
  PreviewsTest() {
    previews.tap()->pass(announce(1, "Front"));
    previews.tap()->pass(announce(2, "Back"));
    previews.open(1);
  }
  void send(std::uint32_t camera, View jpeg) {
    now += host::kPreviewInterval;
    previews.tap()->copy(frame(camera, 1, jpeg), now);
  }
  // The next one, of any camera.
  Preview next() {
    std::vector<Preview> taken;
    EXPECT_TRUE(eventually([&] { return !(taken = previews.take()).empty(); }));
    return taken.empty() ? Preview{} : taken.front();
  }

  std::atomic<int> made = 0;
  Previews previews{[this] { ++made; }};
  host::PreviewTap::Clock::time_point now = host::PreviewTap::Clock::now();
};

TEST_F(PreviewsTest, ShowWhatGoesToTheVmWhateverItsSize) {
  send(1, jpegOf(kRed));
  const Preview red = next();
  EXPECT_EQ(red.camera, "id-1");
  ASSERT_TRUE(red.image);
  EXPECT_TRUE(isLike(kRed, red.image));
  EXPECT_EQ(sizeOf(red.image), (ImageSize{72, 54}));
  send(1, jpegOf(kBlue, 1280, 720));
  const Preview blue = next();
  ASSERT_TRUE(blue.image);
  EXPECT_TRUE(isLike(kBlue, blue.image));
  EXPECT_EQ(sizeOf(blue.image), (ImageSize{96, 54}));
}

TEST_F(PreviewsTest, LeaveOutAFrameThatIsDamaged) {
  const Bytes jpeg = jpegOf(kRed);
  send(1, View(jpeg).first(jpeg.size() / 2));
  EXPECT_TRUE(eventually([&] {
    send(2, jpeg);
    return made > 0;
  }));
  const auto taken = previews.take();
  ASSERT_EQ(taken.size(), 1U);
  EXPECT_EQ(taken.front().camera, "id-2");
}

TEST_F(PreviewsTest, SayWhichFramesTheyCannotShow) {
  send(1, blankJpeg(host::kMaxPreviewBytes + 1));
  const Preview none = next();
  EXPECT_EQ(none.camera, "id-1");
  EXPECT_EQ(none.encoding, kEncodingMjpg);
  EXPECT_FALSE(none.image);
}

// Whoever shows them may be slow.
TEST_F(PreviewsTest, TheNewestReplacesTheOneThatWaits) {
  send(1, jpegOf(kRed));
  EXPECT_TRUE(eventually([&] { return made == 1; }));
  EXPECT_TRUE(eventually([&] {
    send(1, jpegOf(kBlue));
    const auto taken = previews.take();
    EXPECT_LE(taken.size(), 1U);
    return !taken.empty() && isLike(kBlue, taken.front().image);
  }));
}

TEST_F(PreviewsTest, ClosedTheyMakeNone) {
  previews.close();
  send(1, jpegOf(kRed));
  previews.open(2);
  send(2, jpegOf(kRed));
  const Preview other = next();
  EXPECT_EQ(other.camera, "id-2");
  EXPECT_EQ(sizeOf(other.image), (ImageSize{144, 108}));
  previews.end();
  previews.close();
  send(2, jpegOf(kRed));
  EXPECT_FALSE(previews.tap()->take());
}

}  // namespace
}  // namespace lumsar::test
