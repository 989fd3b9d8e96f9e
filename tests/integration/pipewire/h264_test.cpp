// H.264 as it came: what consumers get of it can be decoded.
#include <csignal>

#include "integration/pipewire/pipewire_fixture.h"

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
