// CameraTable and Gallery: cameras come and go, nonsense is skipped, slow sinks are waited for
// without holding anything up.
#include "session/camera_table.h"

#include <gtest/gtest.h>

#include "support/messages.h"
#include "unit/agent/fake_output.h"

namespace lumsar::test {
namespace {

using namespace agent;

class CameraTableTest : public testing::Test {
 protected:
  static constexpr std::size_t kFrameBytes = 100000;

  CameraTableTest() {
    auto owned = std::make_unique<FakeOutput>(true);
    output = owned.get();
    std::vector<std::unique_ptr<SinkFactory>> outputs;
    outputs.push_back(std::move(owned));
    gallery.emplace(
        std::move(outputs), [] {}, kFrameBytes);
    table.emplace(*gallery, [this](View message) {
      if (kindOf(message) == CameraDataKind::Received) return;
      sent.emplace_back(message.begin(), message.end());
    });
  }
  void announce(std::uint32_t number, const std::string& name) {
    table->takeRecord(record(CameraDataKind::Announced, number, announcedBody("id", name)));
  }

  FakeOutput* output = nullptr;
  std::optional<Gallery> gallery;
  std::optional<CameraTable> table;
  std::vector<Bytes> sent;
};

// Which encodings a VM with these outputs says that it can show.
std::vector<std::uint32_t> encodings(std::initializer_list<std::optional<bool>> h264) {
  std::vector<std::unique_ptr<SinkFactory>> outputs;
  for (const auto& shows : h264) outputs.push_back(std::make_unique<FakeOutput>(true, shows));
  Gallery gallery(std::move(outputs), [] {});
  std::vector<Bytes> sent;
  CameraTable table(gallery,
                    [&](View message) { sent.emplace_back(message.begin(), message.end()); });
  table.sendEncodings();
  EXPECT_EQ(sent.size(), 1U);
  EXPECT_EQ(kindOf(sent[0]), CameraDataKind::Encodings);
  return protocol::readEncodings(View(sent[0]).subspan(kHeaderSize + sizeof(CameraDataHeader)));
}

TEST(Encodings, AreThoseThatEveryOutputShows) {
  const std::vector<std::uint32_t> mjpg = {kEncodingMjpg};
  const std::vector<std::uint32_t> both = {kEncodingH264, kEncodingMjpg};
  EXPECT_EQ(encodings({}), mjpg);
  EXPECT_EQ(encodings({false}), mjpg);
  EXPECT_EQ(encodings({true}), both);
  EXPECT_EQ(encodings({true, std::nullopt}), both);
  EXPECT_EQ(encodings({true, false}), mjpg);
  EXPECT_EQ(encodings({std::nullopt}), mjpg);
}

TEST_F(CameraTableTest, CamerasComeAndGo) {
  announce(1, "Front");
  announce(2, "Back");
  EXPECT_EQ(table->size(), 2U);
  ASSERT_EQ(sent.size(), 2U);
  EXPECT_EQ(kindOf(sent[1]), CameraDataKind::Start);
  table->takeRecord(record(CameraDataKind::Removed, 1, bytesOf("unplugged")));
  EXPECT_EQ(table->size(), 1U);
  ASSERT_EQ(gallery->removed().size(), 1U);
  EXPECT_EQ(gallery->removed()[0].info.name, "Front");
  EXPECT_EQ(sent.size(), 2U);
}

TEST_F(CameraTableTest, FramesGoToTheirCamera) {
  announce(1, "Front");
  announce(2, "Back");
  table->takeRecord(record(CameraDataKind::Frame, 2, frameBody(0, blankJpeg())));
  EXPECT_EQ(output->sinks[0]->shown.size(), 0U);
  EXPECT_EQ(output->sinks[1]->shown.size(), 1U);
}

TEST_F(CameraTableTest, DropsAndCountsFramesWhileTooManyBytesWaitInAll) {
  announce(1, "Front");
  announce(2, "Back");
  for (std::uint32_t i = 0; i < 3; ++i) {
    for (std::uint32_t camera = 1; camera <= 2; ++camera) {
      table->takeRecord(
          record(CameraDataKind::Frame, camera, frameBody(i, blankJpeg(kFrameBytes / 4))));
    }
  }
  EXPECT_EQ(output->sinks[0]->shown.size(), 2U);
  EXPECT_EQ(output->sinks[1]->shown.size(), 2U);
  std::vector<CameraStatus> status;
  table->appendStatus(status);
  EXPECT_EQ(status[0].dropped, 1U);
  EXPECT_EQ(status[0].counters.bad, 0U);
  output->sinks[0]->shown.clear();
  table->takeRecord(record(CameraDataKind::Frame, 2, frameBody(3, blankJpeg())));
  EXPECT_EQ(output->sinks[1]->shown.size(), 3U);
}

TEST_F(CameraTableTest, SkipsWhatItDoesNotKnow) {
  table->takeRecord({});
  table->takeRecord(bytesOf("short"));
  table->takeRecord(record(static_cast<CameraDataKind>(4711), 1));
  table->takeRecord(record(CameraDataKind::Removed, 1));
  table->takeRecord(record(CameraDataKind::Frame, 1, frameBody(0, blankJpeg())));
  table->takeRecord(record(CameraDataKind::Announced, 1, bytesOf("short")));
  table->takeRecord(record(CameraDataKind::Start, 1));
  EXPECT_EQ(table->size(), 0U);
  EXPECT_TRUE(sent.empty());
}

TEST_F(CameraTableTest, AnnouncingAgainUnchangedKeepsTheCamera) {
  announce(1, "Front");
  sent.clear();
  announce(1, "Front");
  EXPECT_EQ(output->sinks.size(), 1U);
  EXPECT_FALSE(output->sinks[0]->closing);
  // The service that announced it again has not heard that it is in use.
  ASSERT_EQ(sent.size(), 1U);
  EXPECT_EQ(kindOf(sent[0]), CameraDataKind::Start);
}

TEST_F(CameraTableTest, AnnouncingAgainOtherwiseReplacesAndFilesGetAnotherName) {
  announce(1, "Front door/../x");
  announce(1, "Front door///x");
  EXPECT_EQ(table->size(), 1U);
  ASSERT_EQ(output->sinks.size(), 2U);
  EXPECT_TRUE(output->sinks[0]->closing);
  EXPECT_EQ(output->sinks[0]->label, "Front-door-x-1");
  EXPECT_EQ(output->sinks[1]->label, "Front-door-x-1.2");
}

TEST_F(CameraTableTest, ThereIsALimitOfCameras) {
  for (std::uint32_t i = 0; i < 100; ++i) announce(i, "many");
  EXPECT_EQ(table->size(), 64U);
}

TEST_F(CameraTableTest, GoneCamerasAreRememberedButNotForEver) {
  for (std::uint32_t i = 0; i < 300; ++i) {
    announce(i, "short-lived");
    table->takeRecord(record(CameraDataKind::Removed, i));
  }
  EXPECT_EQ(gallery->removed().size(), 200U);
  EXPECT_EQ(gallery->removed().back().info.camera, 299U);
}

TEST_F(CameraTableTest, DropAllTellsTheServiceWhenItIsStillThere) {
  announce(1, "Front");
  table->dropAll("the end", true);
  EXPECT_EQ(kindOf(sent.back()), CameraDataKind::Stop);
  EXPECT_EQ(table->size(), 0U);
}

TEST_F(CameraTableTest, ASlowSinkOfAGoneCameraHoldsNothingUp) {
  announce(1, "Front");
  output->sinks[0]->closed = false;
  table->dropAll("gone", false);
  gallery->update();
  EXPECT_TRUE(output->sinks[0]->closing);
  EXPECT_GT(output->sinks[0].use_count(), 1);  // the sink lives
  output->sinks[0]->closed = true;
  gallery->update();
  EXPECT_EQ(output->sinks[0].use_count(), 1);
  EXPECT_EQ(gallery->removed().size(), 1U);
}

TEST_F(CameraTableTest, ASinkThatNeverFinishesIsGivenUpAtTheEnd) {
  announce(1, "Front");
  output->sinks[0]->closed = false;
  table->dropAll("the end", true);
  EXPECT_FALSE(gallery->finish(std::chrono::milliseconds(50)));
  output->sinks[0]->closed = true;
  EXPECT_TRUE(gallery->finish(std::chrono::milliseconds(50)));
}

}  // namespace
}  // namespace lumsar::test
