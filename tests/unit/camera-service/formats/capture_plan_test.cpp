// Tests of capture_plan.h: which format is taken and how large frames leave. Test's main thread.
#include "formats/capture_plan.h"

#include <gtest/gtest.h>

#include "lumsar/camera_data.h"

namespace lumsar::test {
namespace {

using service::CameraFormat;
using service::CapturePlan;
using service::CaptureRequest;
using service::combined;
using service::planCapture;

CaptureRequest within(int width, int height) {
  CaptureRequest request;
  request.rule.maxWidth = width;
  request.rule.maxHeight = height;
  return request;
}

CapturePlan planFor(int width, int height, const CaptureRequest& request) {
  return planCapture({{"I420", width, height, 30, 1}}, request);
}

struct SizeCase {
  int width, height, max;
  int expectedWidth, expectedHeight;
};

TEST(CapturePlanTest, ASquareLimitBoundsBothSidesAndKeepsTheShape) {
  for (const SizeCase& c :
       {SizeCase{1920, 1080, 960, 960, 540}, SizeCase{1080, 1920, 960, 540, 960},
        SizeCase{1280, 720, 640, 640, 360}, SizeCase{640, 480, 320, 320, 240},
        SizeCase{500, 500, 100, 100, 100}, SizeCase{1920, 1080, 100, 100, 56}}) {
    const CapturePlan plan = planFor(c.width, c.height, within(c.max, c.max));
    EXPECT_EQ(plan.width, c.expectedWidth) << c.width << "x" << c.height << " in " << c.max;
    EXPECT_EQ(plan.height, c.expectedHeight) << c.width << "x" << c.height << " in " << c.max;
  }
}

TEST(CapturePlanTest, TheThinnestLineIsTheLimit) {
  CaptureRequest thin;
  thin.lineRate = 1000;
  CaptureRequest thinner;
  thinner.lineRate = 500;
  const CaptureRequest free;
  EXPECT_EQ(combined(free, free).lineRate, 0);
  EXPECT_EQ(combined(thin, free).lineRate, 1000);
  EXPECT_EQ(combined(free, thin).lineRate, 1000);
  EXPECT_EQ(combined(thin, thinner).lineRate, 500);
}

TEST(CapturePlanTest, NeverEnlarges) {
  const CapturePlan plan = planFor(641, 481, within(4000, 4000));
  EXPECT_EQ(plan.width, 641);
  EXPECT_EQ(plan.height, 481);
}

TEST(CapturePlanTest, NeverVanishes) {
  const CapturePlan plan = planFor(4000, 4, within(16, 16));
  EXPECT_EQ(plan.width, 16);
  EXPECT_EQ(plan.height, 2);
}

TEST(CapturePlanTest, H264HasEvenSides) {
  CaptureRequest request = within(4000, 4000);
  request.rule.encoding = service::SentEncoding::H264;
  const CapturePlan plan = planFor(641, 481, request);
  EXPECT_EQ(plan.width, 640);
  EXPECT_EQ(plan.height, 480);
  EXPECT_EQ(plan.encoding, kEncodingH264);
}

const std::vector<CameraFormat> kWebcam = {{"YUY2", 640, 480, 30, 1},   {"YUY2", 1280, 720, 10, 1},
                                           {"MJPG", 640, 480, 30, 1},   {"MJPG", 1280, 720, 30, 1},
                                           {"MJPG", 1920, 1080, 30, 1}, {"YUY2", 1920, 1080, 5, 1}};

TEST(CapturePlanTest, TakesTheLargestThatFits) {
  EXPECT_EQ(planCapture(kWebcam, within(1920, 1920)).source, kWebcam[4]);
  EXPECT_EQ(planCapture(kWebcam, within(1280, 1280)).source, kWebcam[3]);
  EXPECT_EQ(planCapture(kWebcam, within(1300, 1300)).source, kWebcam[3]);
}

TEST(CapturePlanTest, IfNoneFitsTheSmallestIsScaledDown) {
  const CapturePlan plan = planCapture(kWebcam, within(320, 320));
  EXPECT_EQ(plan.source.width, 640);
  EXPECT_EQ(plan.width, 320);
  EXPECT_EQ(plan.height, 240);
}

TEST(CapturePlanTest, PixelFormatsArePreferredInTheirOrder) {
  CaptureRequest request = within(640, 640);
  request.rule.pixelFormats = {"YUYV", "MJPG"};
  EXPECT_EQ(planCapture(kWebcam, request).source, kWebcam[0]);
  request.rule.pixelFormats = {"MJPG", "YUYV"};
  EXPECT_EQ(planCapture(kWebcam, request).source, kWebcam[2]);
}

TEST(CapturePlanTest, AFormatThatIsNotWishedForIsTheLastResort) {
  CaptureRequest request = within(4000, 4000);
  request.rule.pixelFormats = {"YUYV"};
  EXPECT_EQ(planCapture(kWebcam, request).source.encoding, "YUY2");
  request.rule.pixelFormats = {"NV12"};
  EXPECT_FALSE(planCapture(kWebcam, request).source.encoding.empty());
}

TEST(CapturePlanTest, ASmoothVideoIsWorthMoreThanALargeOne) {
  CaptureRequest request = within(4000, 4000);
  request.rule.pixelFormats = {"YUYV"};
  EXPECT_EQ(planCapture(kWebcam, request).source, kWebcam[0]);
}

TEST(CapturePlanTest, AnIntervalCountsAsFarAsItSlowsDown) {
  CaptureRequest request = within(4000, 4000);
  request.interval = 20'000;
  EXPECT_EQ(planFor(640, 480, request).interval, 0);
  EXPECT_EQ(planFor(640, 480, request).frameInterval(), 33'333);
  request.interval = 100'000;
  EXPECT_EQ(planFor(640, 480, request).interval, 100'000);
  EXPECT_EQ(planFor(640, 480, request).frameInterval(), 100'000);
}

TEST(CapturePlanTest, ACameraWithoutFormatsHasAPlanAllTheSame) {
  EXPECT_EQ(planCapture({}, within(640, 640)).source.width, 0);
}

TEST(CombinedTest, StaysWithinEveryLimitAndAsFastAsTheFastest) {
  CaptureRequest first = within(1280, 1280);
  first.rule.quality = 80;
  first.interval = 100'000;
  CaptureRequest second = within(640, 4000);
  second.rule.quality = 40;
  const CaptureRequest both = combined(first, second);
  EXPECT_EQ(both.rule.maxWidth, 640);
  EXPECT_EQ(both.rule.maxHeight, 1280);
  EXPECT_EQ(both.rule.quality, 40);
  EXPECT_EQ(both.interval, 0);
}

TEST(CombinedTest, H264OnlyIfAllWantItAndThenAsSlowAsTheSlowest) {
  CaptureRequest first;
  CaptureRequest second;
  first.rule.encoding = service::SentEncoding::H264;
  EXPECT_EQ(combined(first, second).rule.encoding, service::SentEncoding::Mjpg);
  second.rule.encoding = service::SentEncoding::H264;
  second.interval = 100'000;
  EXPECT_EQ(combined(first, second).rule.encoding, service::SentEncoding::H264);
  EXPECT_EQ(combined(first, second).interval, 100'000);
}

}  // namespace
}  // namespace lumsar::test
