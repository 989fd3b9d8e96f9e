// Tests of records.h: the bytes that a VM receives. Test's main thread.
#include "links/records.h"

#include <gtest/gtest.h>

#include "lumsar/camera_data.h"
#include "support/messages.h"
#include "unit/camera-service/test_host.h"

namespace lumsar::test {
namespace {

using service::Camera;
using service::CapturedFrame;
using service::CapturePlan;

Camera camera() {
  Camera result;
  result.info.id = "test:Front";
  result.info.name = "Front";
  result.info.vendorId = 0x046d;
  result.info.productId = 0x0825;
  result.number = 5;
  return result;
}

TEST(RecordsTest, Announced) {
  CapturePlan plan;
  plan.source = {"I420", 1280, 720, 30, 1};
  plan.width = 640;
  plan.height = 360;
  plan.encoding = kEncodingMjpg;
  ipc::Message message = announcedRecord(IPC_MSG_DATA, camera(), plan);
  EXPECT_EQ(message.header().type, IPC_MSG_DATA);
  EXPECT_EQ(message.payload().size(), 16U + 20U + 10U + 5U);
  const Record record = parseRecord(message.payload());
  EXPECT_EQ(record.kind, CameraDataKind::Announced);
  EXPECT_EQ(record.camera, 5U);
  EXPECT_EQ(record.announced.vendorId, 0x046d);
  EXPECT_EQ(record.announced.productId, 0x0825);
  EXPECT_EQ(record.announced.width, 640);
  EXPECT_EQ(record.announced.height, 360);
  EXPECT_EQ(record.announced.frameInterval, 33'333U);
  EXPECT_EQ(record.announced.encoding, kEncodingMjpg);
  EXPECT_EQ(record.id, "test:Front");
  EXPECT_EQ(record.name, "Front");
}

TEST(RecordsTest, Gone) {
  ipc::Message message = service::goneRecord(MSG_DATA, 7, "unplugged");
  EXPECT_EQ(message.header().type, MSG_DATA);
  const Record record = parseRecord(message.payload());
  EXPECT_EQ(record.kind, CameraDataKind::Removed);
  EXPECT_EQ(record.camera, 7U);
  EXPECT_EQ(record.text, "unplugged");
}

TEST(RecordsTest, FrameIsHeaderRecordAndPictureInOneBuffer) {
  const Bytes picture = {0xFF, 0xD8, 1, 2, 3, 0xFF, 0xD9};
  CapturedFrame frame;
  frame.picture = picture;
  frame.width = 640;
  frame.height = 480;
  frame.encoding = kEncodingMjpg;
  frame.time = 1'234'567;
  ipc::Message message = frameRecord(IPC_MSG_DATA, 3, frame);
  EXPECT_EQ(message.bytes().size(), 32 + 16 + 16 + picture.size());
  service::setSequence(message, 99);
  const Record record = parseRecord(message.payload());
  EXPECT_EQ(record.kind, CameraDataKind::Frame);
  EXPECT_EQ(record.camera, 3U);
  EXPECT_EQ(record.time, 1'234'567U);
  EXPECT_EQ(record.frame.sequence, 99U);
  EXPECT_EQ(record.frame.width, 640);
  EXPECT_EQ(record.frame.height, 480);
  EXPECT_EQ(record.frame.flags, kFrameIsKey);
  EXPECT_EQ(record.picture, picture);
  frame.key = false;
  EXPECT_EQ(parseRecord(frameRecord(IPC_MSG_DATA, 3, frame).payload()).frame.flags, 0U);
}

TEST(RecordsTest, ALongTextIsCutBetweenCharacters) {
  std::string name;
  for (int i = 0; i < 1000; ++i) name += "ü";
  Camera named = camera();
  named.info.name = "x" + name;
  ipc::Message message = announcedRecord(IPC_MSG_DATA, named, {});
  const Record record = parseRecord(message.payload());
  EXPECT_EQ(record.name.size(), 1023U);
  EXPECT_TRUE(record.name.ends_with("ü"));
}

}  // namespace
}  // namespace lumsar::test
