// H.264 as it came: what consumers get of it can be decoded.
#include <csignal>

#include "integration/pipewire/pipewire_fixture.h"
#include "unit/video/h264_stream.h"

namespace lumsar::test {
namespace {

TEST_F(Pipewire, AnH264CameraIsPassedThrough) {
  shareCamera(announcedBody("id-1", "Front", kEncodingH264));
  Process consumer = stack->consumer(
      kNode, {"!", "video/x-h264", "!", "filesink", "location=" + (folder / "video")}, 3);
  ASSERT_TRUE(isStarted());
  const Bytes unit = noise(1000, 1);
  ASSERT_TRUE(sendUntilEnded(consumer, [&] { sendH264(unit); })) << consumer.output();
  EXPECT_EQ(bytesOf(readFile(folder / "video")), join({unit, unit, unit}));
}

// What a stream's camera announces.
class PipewireDecoded : public Pipewire {
 protected:
  void SetUp() override {
    Pipewire::SetUp();
    if (IsSkipped()) return;
    if (!H264Stream::isThere()) GTEST_SKIP() << "libavcodec lacks libx264";
    stream.emplace(640, 480);
    shareCamera(announcedBody("id-1", "Front", kEncodingH264));
  }
  void sendLevel(int level, bool isKey) {
    const Bytes unit = stream->next(level, isKey);
    sendFrame(frameBody(sequence++, unit, kEncodingH264, isKey ? kFrameIsKey : 0));
  }
  // With key frames, for a decoder that has dropped some while it started.
  void sendOften(int level) { sendLevel(level, sequence % 4 == 0); }
  std::string lastFrame() const {
    std::string last;
    for (const std::string& name : folder.files()) {
      if (name.ends_with(".frame")) last = std::max(last, name);
    }
    return last.empty() ? last : readFile(folder / last);
  }
  bool shows(int level) const {
    const std::string frame = lastFrame();
    return frame.size() == kBytes &&
           std::abs(static_cast<unsigned char>(frame[kBytes / 3]) - level) <= 3;
  }

  static constexpr std::size_t kBytes = 640 * 480 * 3 / 2;
  std::optional<H264Stream> stream;
};

TEST_F(PipewireDecoded, AProgramThatAsksForRawFramesGetsThem) {
  Process consumer = stack->consumer(kNode, {"!", "video/x-raw,format=I420", "!", "multifilesink",
                                             "location=" + (folder / "%05d.frame")});
  ASSERT_TRUE(isStarted());
  EXPECT_TRUE(sendUntil([&] { return shows(50); }, [&] { sendOften(50); }))
      << consumer.output() << agent->output();
  EXPECT_TRUE(sendUntil([&] { return shows(180); }, [&] { sendOften(180); }));
  EXPECT_TRUE(statusHas(R"("error":"")"));
}

TEST_F(PipewireDecoded, AfterAMissingFrameAKeyFrameIsAskedForAndShown) {
  Process consumer = stack->consumer(kNode, {"!", "video/x-raw,format=I420", "!", "multifilesink",
                                             "location=" + (folder / "%05d.frame")});
  ASSERT_TRUE(isStarted());
  ASSERT_TRUE(sendUntil([&] { return shows(50); }, [&] { sendOften(50); }));
  ++sequence;
  const auto isAsked = [&] {
    return kindOf(host.receive(milliseconds(1))) == CameraDataKind::KeyFrameRequest;
  };
  ASSERT_TRUE(sendUntil(isAsked, [&] { sendLevel(120, false); }));
  EXPECT_TRUE(shows(50));
  EXPECT_TRUE(sendUntil([&] { return shows(120); }, [&] { sendOften(120); }));
}

TEST_F(PipewireDecoded, WhatCannotBeDecodedIsSaidAndTheNextKeyFrameShown) {
  Process consumer = stack->consumer(kNode, {"!", "video/x-raw,format=I420", "!", "multifilesink",
                                             "location=" + (folder / "%05d.frame")});
  ASSERT_TRUE(isStarted());
  const auto sendGarbage = [&] {
    sendFrame(frameBody(sequence++, noise(1000, 1), kEncodingH264, kFrameIsKey));
  };
  ASSERT_TRUE(sendUntil(
      [&] { return agent->says("a frame cannot be decoded", 1, milliseconds(1)); }, sendGarbage));
  EXPECT_TRUE(sendUntil([&] { return shows(120); }, [&] { sendOften(120); }));
  EXPECT_TRUE(statusHas(R"("error":"")"));
}

class PipewireH264 : public Pipewire {
 protected:
  void SetUp() override {
    Pipewire::SetUp();
    if (IsSkipped()) return;
    agent->stop(SIGTERM);
    startAgent({"--discard", "--status-file", folder / "status.json"});  // so that it always runs
    shareCamera(announcedBody("id-1", "Front", kEncodingH264));
    ASSERT_TRUE(isStarted());
  }
  Process savingConsumer() const {
    return stack->consumer(
        kNode, {"!", "video/x-h264", "!", "multifilesink", "location=" + (folder / "%05d.unit")});
  }
  // Units that tell what they are.
  void sendUnit(bool isKey) {
    const std::string unit = (isKey ? "key " : "delta ") + std::to_string(sequence) + '.';
    sendFrame(frameBody(sequence++, bytesOf(unit), kEncodingH264, isKey ? kFrameIsKey : 0));
  }
  std::string saved(int index) const {
    std::string name = std::to_string(index);
    name.insert(0, 5 - name.size(), '0');
    return readFile(folder / (name + ".unit"));
  }
  // Whether a consumer that was sent units of no use gets none of them, but the next key frame.
  void expectNothingBeforeAKeyFrame() {
    const std::uint32_t first = sequence;
    sendDeltas(20);
    int read = 0;
    bool hasNext = false;
    const auto look = [&] {
      for (std::string unit = saved(read); has(unit, "."); unit = saved(++read)) {
        const auto number = static_cast<std::uint32_t>(std::stoul(unit.substr(unit.find(' '))));
        EXPECT_TRUE(number < first || unit.starts_with("key")) << unit;
        hasNext = hasNext || number >= first;
      }
      return hasNext;
    };
    EXPECT_TRUE(sendUntil(look, [&] { sendUnit(true); }));
  }
  void sendDeltas(std::uint32_t count) {
    const std::uint32_t end = sequence + count;
    EXPECT_TRUE(sendUntil([&] { return sequence >= end; }, [&] { sendUnit(false); }));
  }
  int dropped() const {
    constexpr std::string_view kField = R"("dropped":)";
    const std::string status = readFile(folder / "status.json");
    const std::size_t at = status.find(kField);
    return at == std::string::npos ? 0 : std::stoi(status.substr(at + kField.size()));
  }
  bool isKeyFrameAskedFor() const {
    return host.receiveRecord(CameraDataKind::KeyFrameRequest, 1).has_value();
  }
};

TEST_F(PipewireH264, ANewConsumerBeginsWithAKeyFrame) {
  sendUnit(true);
  const Process consumer = savingConsumer();
  ASSERT_TRUE(isKeyFrameAskedFor());
  expectNothingBeforeAKeyFrame();
}

TEST_F(PipewireH264, AfterADroppedFrameAKeyFrameIsAskedForAndWaitedFor) {
  sendUnit(true);
  Process consumer = savingConsumer();
  ASSERT_TRUE(isKeyFrameAskedFor());
  ASSERT_TRUE(sendUntil([&] { return !saved(0).empty(); }, [&] { sendUnit(true); }));
  const int before = dropped();
  consumer.signal(SIGSTOP);
  ASSERT_TRUE(sendUntil([&] { return dropped() > before + 50; }, [&] { sendUnit(false); }));
  while (!host.receive(milliseconds(1)).empty()) continue;
  consumer.signal(SIGCONT);
  EXPECT_TRUE(sendUntil(
      [&] { return kindOf(host.receive(milliseconds(1))) == CameraDataKind::KeyFrameRequest; },
      [&] { sendUnit(false); }));
  expectNothingBeforeAKeyFrame();
}

}  // namespace
}  // namespace lumsar::test
