// SaveOutput: whole files under good names, and a full disk.
#include "outputs/save_output.h"

#include <gtest/gtest.h>

#include <atomic>

#include "base/errors.h"
#include "support/eventually.h"
#include "support/messages.h"
#include "support/temporary_directory.h"
#include "support/text.h"
#include "unit/agent/small_files.h"

namespace lumsar::test {
namespace {

using namespace agent;

class SaveOutputTest : public testing::Test {
 protected:
  void open(SaveAs how) {
    output.emplace(folder.path(), how);
    sink =
        output->open(protocol::Announcement{.camera = 1, .format = {}, .id = "id", .name = "Front"},
                     1, "Front-1", [this] { ++changes; });
  }
  void show(const Bytes& bytes, std::uint32_t encoding = kEncodingMjpg, std::uint32_t flags = 1) {
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
  std::string saved(const std::string& name) const { return readFile(folder / name); }
  static std::string asText(const Bytes& bytes) { return {bytes.begin(), bytes.end()}; }

  TemporaryDirectory folder;
  std::optional<SaveOutput> output;
  std::atomic<int> changes{0};
  std::unique_ptr<Sink> sink;
};

TEST_F(SaveOutputTest, WritesOneFilePerFrame) {
  open(SaveAs::Images);
  show(blankJpeg(100));
  show(blankJpeg(200));
  EXPECT_EQ(folder.files(), (std::vector<std::string>{"Front-1-000001.jpg", "Front-1-000002.jpg"}));
  EXPECT_EQ(saved("Front-1-000002.jpg"), asText(blankJpeg(200)));
  EXPECT_EQ(sink->report().files, 2U);
  EXPECT_EQ(sink->report().path, folder / "Front-1-*.jpg");
}

TEST_F(SaveOutputTest, WritesOneVideoFilePerCamera) {
  open(SaveAs::VideoFile);
  show(blankJpeg(100));
  show(blankJpeg(200));
  EXPECT_EQ(saved("Front-1.mjpeg"), asText(join({blankJpeg(100), blankJpeg(200)})));
  EXPECT_EQ(sink->report().files, 1U);
}

TEST_F(SaveOutputTest, VideoBecomesOneFileThatBeginsWithAKeyFrame) {
  open(SaveAs::Images);
  show(bytesOf("old"), kEncodingH264, 0);
  show(bytesOf("key"), kEncodingH264, kFrameIsKey);
  show(bytesOf("next"), kEncodingH264, 0);
  EXPECT_EQ(saved("Front-1.h264"), "keynext");
}

TEST_F(SaveOutputTest, AFileHoldsOneEncoding) {
  open(SaveAs::VideoFile);
  show(blankJpeg());
  show(bytesOf("key"), kEncodingH264, kFrameIsKey);
  show(bytesOf("next"), kEncodingH264, 0);
  show(blankJpeg(200));
  show(bytesOf("late"), kEncodingH264, 0);
  EXPECT_EQ(saved("Front-1.mjpeg"), asText(blankJpeg()));
  EXPECT_EQ(saved("Front-1+2.h264"), "keynext");
  EXPECT_EQ(saved("Front-1+3.mjpeg"), asText(blankJpeg(200)));
  EXPECT_EQ(folder.files().size(), 3U);
}

TEST_F(SaveOutputTest, AFullDiskEndsTheSavingOfThisCameraWithAReason) {
  const SmallFiles limit(2000);
  open(SaveAs::Images);
  show(blankJpeg());
  EXPECT_TRUE(sink->hasConsumer());
  show(blankJpeg(3000));
  EXPECT_FALSE(sink->hasConsumer());
  EXPECT_TRUE(eventually([&] { return changes == 1; }));
  show(blankJpeg());
  const SinkReport report = sink->report();
  EXPECT_EQ(report.delivered, 1U);
  EXPECT_EQ(report.dropped, 2U);
  EXPECT_NE(report.error.find("File too large"), std::string::npos) << report.error;
  EXPECT_EQ(folder.files(), std::vector<std::string>{"Front-1-000001.jpg"});
}

TEST_F(SaveOutputTest, AFullDiskUnderAVideoFileLeavesCompleteFrames) {
  const SmallFiles limit(2500);
  open(SaveAs::VideoFile);
  for (int i = 0; i < 3; ++i) show(blankJpeg());
  EXPECT_FALSE(sink->hasConsumer());
  EXPECT_EQ(saved("Front-1.mjpeg").size(), 2000U);
  EXPECT_NE(sink->report().error.find("Front-1.mjpeg"), std::string::npos);
}

TEST_F(SaveOutputTest, AVideoIsNotWrittenThroughALink) {
  writeFile(folder / "precious", "precious");
  std::filesystem::create_symlink(folder / "precious", folder / "Front-1.mjpeg");
  open(SaveAs::VideoFile);
  show(blankJpeg());
  EXPECT_FALSE(sink->hasConsumer());
  EXPECT_EQ(saved("precious"), "precious");
}

TEST_F(SaveOutputTest, MakesItsFolderOrSaysWhyNot) {
  SaveOutput(folder / "a/b", SaveAs::Images);
  EXPECT_TRUE(std::filesystem::is_directory(folder / "a/b"));
  writeFile(folder / "file", "x");
  EXPECT_TRUE(has(errorOf<base::Failure>([&] { SaveOutput(folder / "file", SaveAs::Images); }),
                  "cannot save to the directory"));
}

}  // namespace
}  // namespace lumsar::test
