// Tests of device_formats.h: GStreamer's caps, as webcams have them. Test's main thread.
#include "formats/device_formats.h"

#include <gtest/gtest.h>

namespace lumsar::test {
namespace {

using service::CameraFormat;

std::vector<CameraFormat> formats(const char* caps) {
  gst_init(nullptr, nullptr);
  const service::GstPtr<GstCaps> parsed(gst_caps_from_string(caps));
  return service::formatsOf(parsed.get());
}

TEST(DeviceFormatsTest, RawAndJpeg) {
  EXPECT_EQ(formats("video/x-raw,format=YUY2,width=640,height=480,framerate=30/1;"
                    "image/jpeg,width=1920,height=1080,framerate=30/1"),
            (std::vector<CameraFormat>{{"YUY2", 640, 480, 30, 1}, {"MJPG", 1920, 1080, 30, 1}}));
}

TEST(DeviceFormatsTest, OfSeveralRatesTheFastest) {
  EXPECT_EQ(formats("image/jpeg,width=640,height=480,framerate={5/1,30000/1001,15/1}").front(),
            (CameraFormat{"MJPG", 640, 480, 30000, 1001}));
  EXPECT_EQ(formats("image/jpeg,width=640,height=480,framerate=[1/1,60/1]").front().rate(), 60);
}

TEST(DeviceFormatsTest, OfSeveralSizesTheLargest) {
  const auto found = formats("video/x-raw,format=NV12,width=[16,1280],height=[16,720]");
  ASSERT_EQ(found.size(), 1U);
  EXPECT_EQ(found.front(), (CameraFormat{"NV12", 1280, 720, 0, 1}));
  EXPECT_EQ(formats("video/x-raw,format=NV12,width=[1,2147483647],height=480").front().width, 4096);
}

TEST(DeviceFormatsTest, EachFormatOfAListCounts) {
  EXPECT_EQ(formats("video/x-raw,format={YUY2,NV12},width=640,height=480").size(), 2U);
}

TEST(DeviceFormatsTest, WhatCannotBeReadIsLeftOut) {
  EXPECT_TRUE(formats("video/x-h264,width=640,height=480").empty());
  EXPECT_TRUE(formats("video/x-raw,format=YUY2").empty());
  EXPECT_TRUE(formats("audio/x-raw").empty());
  EXPECT_TRUE(formats("video/x-raw,width=640,height=480").empty());
}

TEST(DeviceFormatsTest, CapsSayTheSame) {
  gst_init(nullptr, nullptr);
  for (const CameraFormat& format :
       {CameraFormat{"YUY2", 640, 480, 30, 1}, CameraFormat{"MJPG", 1280, 720, 30000, 1001},
        CameraFormat{"I420", 320, 240, 0, 1}}) {
    EXPECT_EQ(service::formatsOf(service::capsFor(format).get()),
              std::vector<CameraFormat>{format});
  }
}

}  // namespace
}  // namespace lumsar::test
