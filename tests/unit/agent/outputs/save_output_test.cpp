// SaveOutput: whole files under good names, and a full disk.
#include "outputs/save_output.h"

#include <gtest/gtest.h>

#include <atomic>

#include "base/errors.h"
#include "unit/agent/eventually.h"
#include "unit/agent/temp_folder.h"
#include "unit/agent/wire.h"

namespace lumsar::agent::test {
namespace {

class SaveOutputTest : public testing::Test {
 protected:
  void open(SaveAs how) {
    output.emplace(folder.path(), how);
    sink =
        output->open(protocol::Announcement{.camera = 1, .format = {}, .id = "id", .name = "Front"},
                     1, "Front-1", [this] { ++changes; });
  }
  void show(const Message& bytes, std::uint32_t encoding = kEncodingMjpg, std::uint32_t flags = 1) {
    auto frame = std::make_shared<Frame>();
    frame->format.encoding = encoding;
    frame->format.flags = flags;
    frame->data = bytes;
    const auto before = sink->report();
    sink->deliver(std::move(frame));
    EXPECT_TRUE(eventually([&] {
      const auto now = sink->report();
      return now.delivered + now.dropped > before.delivered + before.dropped;
    }));
  }
  std::string saved(const std::string& name) const { return contentOf(folder / name); }
  static std::string asText(const Message& bytes) { return {bytes.begin(), bytes.end()}; }

  TempFolder folder;
  std::optional<SaveOutput> output;
  std::atomic<int> changes{0};
  std::unique_ptr<Sink> sink;
};

TEST_F(SaveOutputTest, WritesOneFileAPicture) {
  open(SaveAs::Images);
  show(picture(100));
  show(picture(200));
  EXPECT_EQ(folder.files(), (std::vector<std::string>{"Front-1-000001.jpg", "Front-1-000002.jpg"}));
  EXPECT_EQ(saved("Front-1-000002.jpg"), asText(picture(200)));
  EXPECT_EQ(sink->report().files, 2U);
  EXPECT_EQ(sink->report().path, folder / "Front-1-*.jpg");
}

TEST_F(SaveOutputTest, WritesOneMovieACamera) {
  open(SaveAs::VideoFile);
  show(picture(100));
  show(picture(200));
  EXPECT_EQ(saved("Front-1.mjpeg"), asText(join({picture(100), picture(200)})));
  EXPECT_EQ(sink->report().files, 1U);
}

TEST_F(SaveOutputTest, VideoBecomesOneFileThatBeginsWithAKeyFrame) {
  open(SaveAs::Images);
  show(bytes("old"), kEncodingH264, 0);
  show(bytes("key"), kEncodingH264, kFrameIsKey);
  show(bytes("next"), kEncodingH264, 0);
  EXPECT_EQ(saved("Front-1.h264"), "keynext");
}

TEST_F(SaveOutputTest, AFullDiskEndsTheSavingOfThisCameraWithAReason) {
  std::filesystem::create_symlink("/dev/full", folder / "Front-1-000002.jpg.part");
  open(SaveAs::Images);
  show(picture());
  EXPECT_TRUE(sink->hasConsumer());
  show(picture());
  EXPECT_FALSE(sink->hasConsumer());
  EXPECT_TRUE(eventually([&] { return changes == 1; }));
  show(picture());
  const SinkReport report = sink->report();
  EXPECT_EQ(report.delivered, 1U);
  EXPECT_EQ(report.dropped, 2U);
  EXPECT_NE(report.error.find("No space left"), std::string::npos) << report.error;
  EXPECT_EQ(folder.files(), std::vector<std::string>{"Front-1-000001.jpg"});
}

TEST_F(SaveOutputTest, AFullDiskUnderAMovieLeavesWholePictures) {
  std::filesystem::create_symlink("/dev/full", folder / "Front-1.mjpeg");
  open(SaveAs::VideoFile);
  show(picture());
  EXPECT_FALSE(sink->hasConsumer());
  EXPECT_NE(sink->report().error.find("Front-1.mjpeg"), std::string::npos);
}

TEST_F(SaveOutputTest, MakesItsFolderOrSaysWhyNot) {
  SaveOutput(folder / "a/b", SaveAs::Images);
  EXPECT_TRUE(std::filesystem::is_directory(folder / "a/b"));
  std::ofstream(folder / "file") << "x";
  try {
    SaveOutput(folder / "file", SaveAs::Images);
    FAIL();
  } catch (const base::Failure& failure) {
    EXPECT_NE(std::string(failure.what()).find("cannot save to the directory"), std::string::npos);
  }
}

}  // namespace
}  // namespace lumsar::agent::test
