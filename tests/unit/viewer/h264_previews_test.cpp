// Previews of H.264: every unit is decoded, by a library that is loaded for it.
#include <gtest/gtest.h>

#include <algorithm>
#include <thread>
#include <vector>

#include "preview/previews.h"
#include "support/eventually.h"
#include "unit/video/h264_stream.h"
#include "unit/viewer/preview_frames.h"

namespace lumsar::test {
namespace {

using namespace viewer;

// A unit of a camera that is already known.
Bytes unitOf(std::uint32_t sequence, View data, bool isKey) {
  const Bytes body = frameBody(sequence, data, kEncodingH264, isKey ? kFrameIsKey : 0);
  return message(MSG_DATA, record(CameraDataKind::Frame, 1, body, cameraClock()));
}

struct H264PreviewsTest : testing::Test {
  void SetUp() override {
    if (!H264Stream::isThere()) GTEST_SKIP() << "libavcodec lacks libx264";
    previews.tap()->pass(announce(1, "Front"));
    previews.open(1);
  }
  void send(View data, bool isKey) {
    previews.tap()->copy(unitOf(++sequence, data, isKey), host::PreviewTap::Clock::now() + later);
  }
  // Sends units until one of them is to be seen that looks like that. A machine that is too slow is
  // given another chance.
  bool shows(H264Stream& stream, int level, guint32 colour) {
    bool isKey = true;
    return eventually([&] {
      send(stream.next(level, isKey), isKey);
      std::this_thread::sleep_for(milliseconds(5));
      newest = previews.take();
      if (newest.empty()) return isKey = false;
      if (newest.front().image) return isLike(colour, newest.front().image);
      previews.open(1);
      isKey = true;
      return false;
    });
  }

  Previews previews{[] {}};
  std::vector<Preview> newest;
  std::uint32_t sequence = 0;
  std::chrono::seconds later{0};
};

constexpr guint32 kWhite = 0xFFFFFFFF;
constexpr guint32 kBlack = 0x000000FF;

TEST(H264Images, FollowTheStreamAndTheScreen) {
  if (!H264Stream::isThere()) GTEST_SKIP() << "libavcodec lacks libx264";
  const auto images = loadH264Images();
  ASSERT_TRUE(images);
  const auto shows = [&](guint32 colour, ImageSize space, ImageSize size) {
    const Image image = images->image(space);
    return image && isLike(colour, image) && gdk_pixbuf_get_width(image.get()) == size.width &&
           gdk_pixbuf_get_height(image.get()) == size.height;
  };
  H264Stream large(640, 480);
  const Bytes first = large.next(235);
  EXPECT_FALSE(images->decode(first, false)) << "it does not begin with a key frame";
  ASSERT_TRUE(images->decode(first, true));
  EXPECT_TRUE(shows(kWhite, previewSize(1), {72, 54}));
  EXPECT_TRUE(shows(kWhite, previewSize(2), {144, 108}));
  ASSERT_TRUE(images->decode(large.next(16), false));
  EXPECT_TRUE(shows(kBlack, previewSize(2), {144, 108}));
  H264Stream small(320, 180);
  ASSERT_TRUE(images->decode(small.next(235), true));
  EXPECT_TRUE(shows(kWhite, previewSize(1), {96, 54}));
}

TEST_F(H264PreviewsTest, ShowWhatGoesToTheVmWhateverItsSize) {
  H264Stream large(640, 480);
  ASSERT_TRUE(shows(large, 235, kWhite));
  EXPECT_EQ(newest.front().camera, "id-1");
  EXPECT_EQ(gdk_pixbuf_get_width(newest.front().image.get()), 72);
  EXPECT_EQ(gdk_pixbuf_get_height(newest.front().image.get()), 54);
  EXPECT_TRUE(shows(large, 16, kBlack));
  H264Stream small(320, 180);
  EXPECT_TRUE(shows(small, 235, kWhite));
  EXPECT_EQ(gdk_pixbuf_get_width(newest.front().image.get()), 96);
}

TEST(H264Images, WaitForAKeyFrameAfterDamage) {
  if (!H264Stream::isThere()) GTEST_SKIP() << "libavcodec lacks libx264";
  const auto images = loadH264Images();
  H264Stream stream(640, 480);
  ASSERT_TRUE(images->decode(stream.next(235), true));
  Bytes unit = stream.next(16);
  std::fill(unit.begin() + 5, unit.end(), 0xFF);
  EXPECT_FALSE(images->decode(unit, false));
  EXPECT_FALSE(images->decode(stream.next(16), false));
  EXPECT_TRUE(images->decode(stream.next(16, true), true));
}

TEST_F(H264PreviewsTest, BeginAgainWhenTheyAreOpenedAgain) {
  H264Stream stream(640, 480);
  ASSERT_TRUE(shows(stream, 235, kWhite));
  previews.close();
  send(stream.next(16, true), true);
  previews.open(2);
  ASSERT_TRUE(shows(stream, 235, kWhite));
  EXPECT_EQ(gdk_pixbuf_get_height(newest.front().image.get()), 108);
}

TEST_F(H264PreviewsTest, SayWhatIsTooMuch) {
  send(Bytes(host::kMaxPreviewBytes + 1), true);
  ASSERT_TRUE(eventually([&] { return !(newest = previews.take()).empty(); }));
  EXPECT_EQ(newest.front().encoding, kEncodingH264);
  EXPECT_FALSE(newest.front().image);
}

TEST_F(H264PreviewsTest, ComeBackAfterARest) {
  send(Bytes(host::kMaxPreviewBytes + 1), true);
  ASSERT_TRUE(eventually([&] { return !(newest = previews.take()).empty(); }));
  EXPECT_FALSE(newest.front().image);
  H264Stream stream(640, 480);
  later = host::kFirstPreviewRest;
  EXPECT_TRUE(shows(stream, 235, kWhite));
}

}  // namespace
}  // namespace lumsar::test
