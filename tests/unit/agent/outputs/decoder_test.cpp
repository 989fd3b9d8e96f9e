// Decoder with the real lumsar-decoder: what it makes, its rights, and whatever may happen to it.
#include "outputs/decoder.h"

#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <thread>

#include "base/text/format.h"
#include "support/eventually.h"
#include "support/temporary_directory.h"
#include "support/text.h"
#include "unit/agent/outputs/mosaic_jpeg.h"
#include "unit/video/h264_stream.h"

namespace lumsar::test {
namespace {

using namespace agent;
using base::text;

constexpr FrameSize kSize = {64, 48};

Frame frameOf(const Bytes& data, std::uint32_t encoding = kEncodingMjpg) {
  Frame frame;
  frame.format = {7, kSize.width, kSize.height, encoding, kFrameIsKey};
  frame.captured = 1;
  frame.arrived = 2;
  frame.data = data;
  return frame;
}

Frame greyFrame(double level = 255) {
  return frameOf(mosaicJpeg(8, 6, [level](int, int) { return Colour{level, level, level}; }));
}

// The children of this process, which are decoders.
std::vector<pid_t> children() {
  std::vector<pid_t> found;
  for (const auto& thread : std::filesystem::directory_iterator("/proc/self/task")) {
    std::ifstream list(thread.path() / "children");
    for (pid_t child = 0; list >> child;) found.push_back(child);
  }
  return found;
}

class DecoderTest : public testing::Test {
 protected:
  void SetUp() override {
    if (!Decoder::isUsable()) GTEST_SKIP() << Decoder::path() << " was not built";
  }
  // Of the one decoder that runs.
  static pid_t process() {
    const std::vector<pid_t> all = children();
    EXPECT_EQ(all.size(), 1U);
    return all.empty() ? -1 : all.front();
  }
  FramePtr decode(const Frame& frame) { return decoder.decode(frame, why); }
  // The next frame is decoded again, though the decoder may be waiting before it starts.
  bool recovers() {
    return eventually([this] { return decode(greyFrame()) != nullptr; });
  }

  Decoder decoder{{kRawI420, kSize, false}};
  std::string why;
};

TEST_F(DecoderTest, MakesRawFramesOfJpegs) {
  const FramePtr raw = decode(greyFrame(255));
  ASSERT_TRUE(raw) << why;
  EXPECT_EQ(raw->format.encoding, kRawI420);
  EXPECT_EQ(raw->format.width, kSize.width);
  EXPECT_EQ(raw->format.height, kSize.height);
  EXPECT_EQ(raw->format.sequence, 7U);
  EXPECT_EQ(raw->captured, 1U);
  EXPECT_EQ(raw->arrived, 2U);
  ASSERT_EQ(raw->data.size(), rawBytes(kRawI420, kSize));
  EXPECT_NEAR(raw->data[0], 235, 3);
  EXPECT_NEAR(raw->data.back(), 128, 3);
}

TEST_F(DecoderTest, MakesRawFramesOfH264) {
  if (!H264Stream::isThere()) GTEST_SKIP() << "libavcodec lacks libx264";
  H264Stream stream(kSize.width, kSize.height);
  for (const int level : {50, 100, 150}) {
    const FramePtr raw = decode(frameOf(stream.next(level), kEncodingH264));
    ASSERT_TRUE(raw) << why;
    EXPECT_NEAR(raw->data[0], level, 3);
  }
}

TEST_F(DecoderTest, SaysWhyThereIsNoFrameAndMakesTheNext) {
  EXPECT_FALSE(decode(frameOf({1, 2, 3})));
  EXPECT_EQ(why, "a JPEG is damaged or does not have the announced size");
  EXPECT_FALSE(decode(frameOf({1, 2, 3}, kEncodingH264)));
  EXPECT_EQ(why, "a frame cannot be decoded");
  EXPECT_FALSE(decode(frameOf(Bytes(kMaxEncodedBytes + 1))));
  EXPECT_EQ(why, "a frame is larger than 16777216 bytes and is not decoded");
  EXPECT_TRUE(decode(greyFrame())) << why;
  EXPECT_EQ(why, "");
}

TEST_F(DecoderTest, RunsWithoutRights) {
  ASSERT_TRUE(decode(greyFrame())) << why;
  const std::string status = readFile(text("/proc/{}/status", process()));
  EXPECT_TRUE(has(status, "\nSeccomp:\t2\n")) << status;
  EXPECT_TRUE(has(status, "\nNoNewPrivs:\t1\n")) << status;
  EXPECT_TRUE(has(status, "\nCapEff:\t0000000000000000\n")) << status;
  if (geteuid() == 0) {
    EXPECT_TRUE(has(status, "\nUid:\t65534\t65534\t65534\t65534\n")) << status;
  }
}

TEST_F(DecoderTest, HasNoDescriptorsButItsOwn) {
  ASSERT_TRUE(decode(greyFrame())) << why;
  if (geteuid() != 0) GTEST_SKIP() << "only root sees the descriptors of such a process";
  std::size_t count = 0;
  for (const auto& file : std::filesystem::directory_iterator(text("/proc/{}/fd", process()))) {
    if (file.path().filename() > "2") ++count;
  }
  EXPECT_EQ(count, 3U);
  for (const char* standard : {"0", "1"}) {
    EXPECT_EQ(std::filesystem::read_symlink(text("/proc/{}/fd/{}", process(), standard)),
              "/dev/null");
  }
}

TEST_F(DecoderTest, ThatIsKilledIsStartedAgain) {
  ASSERT_TRUE(decode(greyFrame())) << why;
  const pid_t killed = process();
  kill(killed, SIGKILL);
  ASSERT_TRUE(eventually([&] { return !decode(greyFrame()); }));
  EXPECT_TRUE(has(why, "is started again")) << why;
  EXPECT_TRUE(recovers()) << why;
  EXPECT_NE(process(), killed);
}

// Of the last argument with which the one decoder that runs was started.
bool mayUseHardware(pid_t decoder) {
  return has(readFile(text("/proc/{}/cmdline", decoder)), "hardware");
}

TEST_F(DecoderTest, HardwareThatIsNotThereIsNotAskedForAgain) {
  if (Decoder::useHardware()) GTEST_SKIP() << "this machine has such a device";
  Decoder other{{kRawI420, kSize, false}};
  ASSERT_TRUE(other.decode(greyFrame(), why)) << why;
  EXPECT_FALSE(mayUseHardware(process()));
}

TEST_F(DecoderTest, IsLeftForTheProcessorWhenItEndsWithHardware) {
  Decoder other{{kRawI420, kSize, false}, Decoder::Hardware::IfThere};
  ASSERT_TRUE(other.decode(greyFrame(), why)) << why;
  ASSERT_TRUE(mayUseHardware(process()));
  kill(process(), SIGKILL);
  ASSERT_TRUE(eventually([&] { return !other.decode(greyFrame(), why); }));
  EXPECT_TRUE(has(why, ", without its hardware")) << why;
  ASSERT_TRUE(eventually([&] { return other.decode(greyFrame(), why) != nullptr; })) << why;
  EXPECT_FALSE(mayUseHardware(process()));
}

TEST_F(DecoderTest, ThatHangsIsStartedAgain) {
  ASSERT_TRUE(decode(greyFrame())) << why;
  kill(process(), SIGSTOP);
  EXPECT_FALSE(decode(greyFrame()));
  EXPECT_EQ(why, "its decoder takes too long and is started again");
  EXPECT_TRUE(recovers()) << why;
}

TEST_F(DecoderTest, ThatHangsIsLeftWhenNobodyWantsTheFrameAnyMore) {
  ASSERT_TRUE(decode(greyFrame())) << why;
  kill(process(), SIGSTOP);
  const auto begin = std::chrono::steady_clock::now();
  std::thread other([this] {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    decoder.cancel();
  });
  EXPECT_FALSE(decode(greyFrame()));
  EXPECT_LT(std::chrono::steady_clock::now() - begin, kAtOnce);
  other.join();
  EXPECT_FALSE(decode(greyFrame()));
  EXPECT_EQ(children().size(), 0U);
}

TEST(Decoders, LeaveNoProcess) {
  if (!Decoder::isUsable()) GTEST_SKIP() << Decoder::path() << " was not built";
  for (int i = 0; i < 20; ++i) {
    Decoder decoder({kRawNv12, kSize, true});
    std::string why;
    ASSERT_TRUE(decoder.decode(greyFrame(), why)) << why;
  }
  EXPECT_EQ(children().size(), 0U);
}

}  // namespace
}  // namespace lumsar::test
