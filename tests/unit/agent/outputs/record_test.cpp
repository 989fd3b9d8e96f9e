// Records: reading announcements, truncated ones, building messages, cleaning peers' texts.
#include "outputs/record.h"

#include <gtest/gtest.h>

#include "app/log.h"
#include "unit/agent/wire.h"

namespace lumsar::agent::test {
namespace {

TEST(Record, ReadsAnAnnouncement) {
  const Message body = join({announcedBody("usb-1", "Front door"), bytes("fields to come")});
  const auto info = readAnnounced({.camera = 9}, body);
  ASSERT_TRUE(info);
  EXPECT_EQ(info->number, 9U);
  EXPECT_EQ(info->id, "usb-1");
  EXPECT_EQ(info->name, "Front door");
  EXPECT_EQ(info->format.width, 640);
}

TEST(Record, RefusesEveryAnnouncementThatIsCutShort) {
  const Message body = announcedBody("usb-1", "Front door");
  for (std::size_t size = 0; size < body.size(); ++size) {
    EXPECT_FALSE(readAnnounced({}, Bytes(body).first(size))) << size;
  }
}

TEST(Record, GivesTheNamelessAName) {
  EXPECT_EQ(readAnnounced({.camera = 3}, announcedBody("", ""))->name, "camera 3");
}

TEST(Record, MakesPeersTextsHarmless) {
  EXPECT_EQ(clean("a\nb\x1b[31m\x7f"), "a?b?[31m?");
  EXPECT_EQ(clean("Gr\xc3\xbc\xc3\x9f"), "Gr\xc3\xbc\xc3\x9f");
  EXPECT_EQ(clean("\xc3"), "?");
  EXPECT_EQ(clean("\xc0\xaf\xed\xa0\x80\xf4\x90\x80\x80"), "?????????");
  EXPECT_EQ(clean("\xc2\x9b"), "?");  // a control character beyond ASCII
  EXPECT_EQ(clean("\xf0\x9f\x93\xb7"), "\xf0\x9f\x93\xb7");
  EXPECT_EQ(clean(std::string(1000, 'x')).size(), 200U);
  EXPECT_EQ(clean("\xc3\xbc\xc3\xbc", 3), "\xc3\xbc");
}

TEST(Record, BuildsAStartMessageByteForByte) {
  Message start = dataMessage(CameraDataKind::Start, 0x01020304);
  ASSERT_EQ(start.size(), 48U);
  std::fill(start.begin() + 40, start.end(), 0);  // the clock
  const Message expected{0x4D, 0x41, 0x43, 0x56, 1, 0, 0, 0, 16, 0, 0, 0, 0, 0, 0, 0,
                         0,    0,    0,    0,    0, 0, 0, 0, 0,  0, 0, 0, 0, 0, 0, 0,
                         4,    0,    0,    0,    4, 3, 2, 1, 0,  0, 0, 0, 0, 0, 0, 0};
  EXPECT_EQ(start, expected);
}

TEST(Record, NamesEncodings) {
  EXPECT_EQ(encodingName(kEncodingMjpg), "MJPG");
  EXPECT_EQ(encodingName(0x01FF4141), "AA??");
}

}  // namespace
}  // namespace lumsar::agent::test
