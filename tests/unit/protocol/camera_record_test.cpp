#include "protocol/camera_record.h"

#include <gtest/gtest.h>

#include <vector>

namespace lumsar::test {
namespace {

using namespace protocol;

CameraDataHeader headerOf(Bytes message) {
  Bytes payload = message.subspan(kHeaderSize);
  return *take<CameraDataHeader>(payload);
}

Bytes bodyOf(Bytes message) {
  return message.subspan(kHeaderSize + sizeof(CameraDataHeader));
}

Announcement frontDoor() {
  CameraAnnounced format;
  format.width = 640;
  format.height = 480;
  format.encoding = kEncodingMjpg;
  return {9, format, "usb-1", "Front door"};
}

TEST(CameraRecord, IsBuiltByteForByte) {
  Message start = recordMessage(MSG_DATA, CameraDataKind::Start, 0x01020304);
  ASSERT_EQ(start.size(), 48U);
  std::vector<unsigned char> bytes(start.bytes().begin(), start.bytes().end());
  std::fill(bytes.begin() + 40, bytes.end(), 0);  // the clock
  const std::vector<unsigned char> expected{
      0x4D, 0x41, 0x43, 0x56, 1, 0, 0, 0, 16, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
      0,    0,    0,    0,    0, 0, 0, 0, 4,  0, 0, 0, 4, 3, 2, 1, 0, 0, 0, 0, 0, 0, 0, 0};
  EXPECT_EQ(bytes, expected);
}

TEST(CameraRecord, AnAnnouncementIsReadAsItWasBuilt) {
  const Message message = announcedMessage(IPC_MSG_DATA, frontDoor());
  EXPECT_EQ(message.header().type, IPC_MSG_DATA);
  EXPECT_EQ(headerOf(message.bytes()).kind, 1);
  const auto read = readAnnouncement(headerOf(message.bytes()), bodyOf(message.bytes()));
  ASSERT_TRUE(read);
  EXPECT_EQ(read->camera, 9U);
  EXPECT_EQ(read->id, "usb-1");
  EXPECT_EQ(read->name, "Front door");
  EXPECT_EQ(read->format.width, 640);
  EXPECT_EQ(read->format.encoding, kEncodingMjpg);
}

TEST(CameraRecord, BytesAfterAnAnnouncementAreIgnoredAndMissingOnesRefused) {
  const Message message = announcedMessage(MSG_DATA, frontDoor());
  std::vector<unsigned char> body(bodyOf(message.bytes()).begin(), bodyOf(message.bytes()).end());
  for (std::size_t size = 0; size < body.size(); ++size) {
    EXPECT_FALSE(readAnnouncement({}, Bytes(body).first(size))) << size;
  }
  body.insert(body.end(), {'m', 'o', 'r', 'e'});
  EXPECT_EQ(readAnnouncement({}, body)->name, "Front door");
}

TEST(CameraRecord, TextsAreShortenedWhenBuiltAndCleanedWhenRead) {
  Announcement camera = frontDoor();
  camera.id = std::string(1023, 'x') + "\xc3\xbc";
  camera.name = "a\nb";
  const Message message = announcedMessage(MSG_DATA, camera);
  EXPECT_EQ(message.size(), kHeaderSize + 16 + 20 + 1023 + 3);
  EXPECT_EQ(readAnnouncement({}, bodyOf(message.bytes()))->name, "a?b");
  EXPECT_EQ(removedMessage(MSG_DATA, 1, std::string(5000, 'x')).size(), kHeaderSize + 16 + 1024);
}

TEST(CameraRecord, ACameraWithoutANameGetsOne) {
  const Message message = announcedMessage(MSG_DATA, {3, {}, "", ""});
  EXPECT_EQ(readAnnouncement(headerOf(message.bytes()), bodyOf(message.bytes()))->name, "camera 3");
}

TEST(CameraRecord, AFrameIsNumberedWhenItLeaves) {
  CameraFrame fields;
  fields.width = 320;
  fields.flags = kFrameIsKey;
  Message frame = frameMessage(MSG_DATA, 5, 123456, fields, bytesOf("jpeg"));
  stampFrame(frame, 77, false);
  EXPECT_EQ(headerOf(frame.bytes()).time, 123456U);
  EXPECT_EQ(headerOf(frame.bytes()).camera, 5U);
  Bytes body = bodyOf(frame.bytes());
  const auto read = take<CameraFrame>(body);
  EXPECT_EQ(read->sequence, 77U);
  EXPECT_EQ(read->width, 320);
  EXPECT_EQ(read->flags, kFrameIsKey);
  EXPECT_TRUE(std::ranges::equal(body, bytesOf("jpeg")));
  stampFrame(frame, 78, true);
  body = bodyOf(frame.bytes());
  EXPECT_EQ(take<CameraFrame>(body)->flags, kFrameIsKey | kFrameIsAsked);
}

TEST(CameraRecord, IsFoundByItsKind) {
  const Message probe = recordMessage(MSG_DATA, CameraDataKind::WakeUpProbe, 0);
  EXPECT_TRUE(readRecord(probe.bytes(), CameraDataKind::WakeUpProbe));
  EXPECT_FALSE(readRecord(probe.bytes(), CameraDataKind::Frame));
  EXPECT_FALSE(readRecord(probe.bytes().first(47), CameraDataKind::WakeUpProbe));
  EXPECT_FALSE(readRecord({}, CameraDataKind::WakeUpProbe));
  const Message other = recordMessage(MSG_HELLO, CameraDataKind::WakeUpProbe, 0);
  EXPECT_FALSE(readRecord(other.bytes(), CameraDataKind::WakeUpProbe));
  Message stray = recordMessage(MSG_DATA, CameraDataKind::WakeUpProbe, 0);
  stray.bytes()[0] = 'X';
  EXPECT_FALSE(readRecord(stray.bytes(), CameraDataKind::WakeUpProbe));
}

TEST(CameraRecord, EncodingsAreReadAsTheyWereMade) {
  const std::vector<std::uint32_t> encodings = {kEncodingH264, kEncodingMjpg};
  const Message made = encodingsMessage(MSG_DATA, encodings);
  EXPECT_EQ(headerOf(made.bytes()).kind, 9);
  EXPECT_EQ(headerOf(made.bytes()).camera, 0U);
  const auto body = bodyOf(made.bytes());
  EXPECT_TRUE(std::ranges::equal(body, bytesOf("H264MJPG")));
  EXPECT_EQ(readEncodings(body), encodings);
  EXPECT_EQ(readEncodings(body.first(7)), std::vector{kEncodingH264}) << "what is whole";
  EXPECT_TRUE(readEncodings({}).empty());
}

TEST(CameraRecord, NamesEncodings) {
  EXPECT_EQ(encodingName(kEncodingMjpg), "MJPG");
  EXPECT_EQ(encodingName(0x01FF4141), "AA??");
}

}  // namespace
}  // namespace lumsar::test
