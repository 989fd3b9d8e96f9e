// What consumers get of a camera, right and wrong.
#include <algorithm>
#include <csignal>
#include <filesystem>

#include "integration/pipewire/pipewire_fixture.h"
#include "outputs/placard.h"

namespace lumsar::test {
namespace {

TEST_F(Pipewire, AConsumerGetsTheFramesAsTheyCame) {
  shareCamera();
  Process consumer = stack->consumer(
      kNode, {"!", "image/jpeg", "!", "multifilesink", "location=" + (folder / "%02d.jpg")}, 10);
  ASSERT_TRUE(isStarted());
  const auto jpeg = [](std::size_t i) {
    return blankJpeg(1000 + i, static_cast<unsigned char>(i % 250));
  };
  ASSERT_TRUE(sendUntilEnded(consumer, [&] { send(jpeg(sequence)); })) << consumer.output();
  std::size_t last = 0;
  const Bytes placard =
      agent::placard(agent::Notice::CameraStarts, kEncodingMjpg, agent::FrameSize{640, 480});
  for (int i = 0; i < 10; ++i) {
    const std::string frame = readFile(folder / ("0" + std::to_string(i) + ".jpg"));
    if (last == 0 && bytesOf(frame) == placard) continue;  // of a slow start
    ASSERT_GE(frame.size(), 1000U);
    EXPECT_EQ(bytesOf(frame), jpeg(frame.size() - 1000));
    EXPECT_GT(frame.size(), last) << "in their order";
    last = frame.size();
  }
  EXPECT_GT(last, 0U);
  EXPECT_TRUE(isStopped());
}

TEST_F(Pipewire, SeveralConsumersAreServedAtOnce) {
  shareCamera();
  Process first = stack->consumer(kNode, {"!", "image/jpeg", "!", "fakesink"}, 30);
  Process second = stack->consumer(kNode, {"!", "image/jpeg", "!", "fakesink"}, 30);
  ASSERT_TRUE(isStarted());
  ASSERT_TRUE(sendUntilEnded(first, [&] { send(blankJpeg()); })) << first.output();
  ASSERT_TRUE(sendUntilEnded(second, [&] { send(blankJpeg()); })) << second.output();
  EXPECT_TRUE(isStopped());
}

TEST_F(Pipewire, WhatIsNoJpegOfTheAnnouncedSizeIsDroppedAndTheNextFrameShown) {
  shareCamera();
  // It also gets what is shown while there are no frames, any number of times.
  Process consumer = stack->consumer(kNode, {"!", "video/x-raw,format=I420", "!", "fakesink"});
  ASSERT_TRUE(isStarted());
  Bytes cut = grey(200);
  cut.erase(cut.begin() + 600, cut.end() - 2);
  const Bytes lies[] = {blankJpeg(), cut, grey(200, 2000, 1200), grey(200, 8, 8)};
  ASSERT_TRUE(sendUntil([&] { return statusHasNow(R"("error":"a JPEG is damaged)"); },
                        [&] { send(lies[sequence % std::size(lies)]); }));
  EXPECT_TRUE(consumer.running());
  EXPECT_TRUE(statusHas(R"("shown":0,)"));
  EXPECT_TRUE(sendUntil([&] { return !statusHasNow(R"("shown":0,)"); }, [&] { send(grey(200)); }))
      << consumer.output();
  EXPECT_TRUE(statusHas(R"("error":"")"));
}

TEST_F(Pipewire, AConsumerIsToldWhenThereIsNoSignal) {
  shareCamera();
  const Process consumer =
      stack->consumer(kNode, {"!", "video/x-raw,format=I420", "!", "multifilesink",
                              "location=" + (folder / "%05d.frame")});
  ASSERT_TRUE(isStarted());
  const auto isShown = [&](const Bytes& image) {
    const auto names = folder.files();
    return std::ranges::any_of(names, [&](const std::string& name) {
      return name.ends_with(".frame") && bytesOf(readFile(folder / name)) == image;
    });
  };
  const agent::FrameSize size = {640, 480};
  using agent::Notice;
  EXPECT_TRUE(eventually(
      [&] { return isShown(agent::placard(Notice::CameraStarts, agent::kRawI420, size)); }));
  EXPECT_TRUE(statusHas(R"("shown":0,)"));
  ASSERT_TRUE(sendUntil([&] { return !statusHasNow(R"("shown":0,)"); }, [&] { send(grey(200)); }));
  EXPECT_TRUE(
      eventually([&] { return isShown(agent::placard(Notice::NoSignal, agent::kRawI420, size)); }));
}

TEST_F(Pipewire, AFrameThatIsLargerThanTheBuffersIsDropped) {
  shareCamera(announcedBody("id-1", "Front", kEncodingMjpg, 16, 16));
  Process consumer = stack->consumer(kNode, {"!", "image/jpeg", "!", "fakesink"}, 4);
  ASSERT_TRUE(isStarted());
  ASSERT_TRUE(sendUntil([&] { return agent->says("a frame is larger than", 1, milliseconds(1)); },
                        [&] { send(blankJpeg(100000), 16, 16); }));
  const auto oneOfTwo = [&] { send(blankJpeg(sequence % 2 == 0 ? 1000 : 100000), 16, 16); };
  EXPECT_TRUE(sendUntilEnded(consumer, oneOfTwo)) << consumer.output();
  EXPECT_EQ(agent->countOf("a frame is larger than"), 1);
}

class PipewireSizes : public Pipewire {
 protected:
  // Whether a consumer with these elements gets frames first of 640x480, then of 320x240, which
  // have so many bytes.
  void expectBoth(Process::Words elements, std::uintmax_t large, std::uintmax_t small) {
    shareCamera();
    elements.insert(elements.end(), {"!", "multifilesink", "location=" + (folder / "%05d.frame")});
    Process consumer = stack->consumer(kNode, elements);
    ASSERT_TRUE(isStarted());
    ASSERT_TRUE(sendUntil([&] { return hasFrameOf(large); }, [&] { send(grey(200)); }));
    ASSERT_TRUE(
        sendUntil([&] { return hasFrameOf(small); }, [&] { send(grey(200, 40, 30), 320, 240); }))
        << consumer.output();
  }
  bool hasFrameOf(std::uintmax_t bytes) const {
    std::error_code gone;
    return std::ranges::any_of(folder.files(), [&](const std::string& name) {
      return name.ends_with(".frame") && std::filesystem::file_size(folder / name, gone) == bytes;
    });
  }
};

TEST_F(PipewireSizes, AreFollowedAsJpeg) {
  expectBoth({"!", "jpegdec", "!", "videoconvert", "!", "video/x-raw,format=GRAY8"}, 640 * 480,
             320 * 240);
}

// A program that has chosen a size keeps it, whatever the camera does.
TEST_F(PipewireSizes, StayAsTheyWereChosenForRawFrames) {
  constexpr std::size_t kBytes = 640 * 480 * 3 / 2;
  shareCamera();
  Process consumer = stack->consumer(kNode, {"!", "video/x-raw,format=I420", "!", "multifilesink",
                                             "location=" + (folder / "%05d.frame")});
  ASSERT_TRUE(isStarted());
  ASSERT_TRUE(sendUntil([&] { return hasFrameOf(kBytes); }, [&] { send(grey(200)); }));
  const auto hasLater = [&] {
    const auto names = folder.files();
    return std::ranges::any_of(names, [&](const std::string& name) {
      const std::string frame = readFile(folder / name);
      return frame.size() == kBytes && static_cast<unsigned char>(frame[kBytes / 3]) < 103;
    });
  };
  EXPECT_TRUE(sendUntil(hasLater, [&] { send(grey(100, 40, 30), 320, 240); })) << consumer.output();
  EXPECT_FALSE(hasFrameOf(320 * 240 * 3 / 2));
}

TEST_F(PipewireSizes, AndLayoutsAreThoseThatAProgramAsksFor) {
  shareCamera();
  struct Asked {
    std::string caps;
    std::size_t bytes;
  };
  for (const Asked& asked :
       {Asked{"video/x-raw,format=I420", 640 * 480 * 3 / 2},
        Asked{"video/x-raw,format=NV12", 640 * 480 * 3 / 2},
        Asked{"video/x-raw,format=YUY2,width=320,height=240", 320 * 240 * 2}}) {
    Process consumer = stack->consumer(
        kNode, {"!", asked.caps, "!", "multifilesink", "location=" + (folder / "%05d.frame")});
    const auto isShown = [&] {
      const auto names = folder.files();
      return std::ranges::any_of(names, [&](const std::string& name) {
        const std::string frame = readFile(folder / name);
        return frame.size() == asked.bytes &&
               std::abs(static_cast<unsigned char>(frame[2]) - 200) <= 3;
      });
    };
    EXPECT_TRUE(sendUntil(isShown, [&] { send(grey(200)); })) << asked.caps << consumer.output();
    consumer.stop(SIGTERM);
    for (const std::string& name : folder.files()) {
      if (name.ends_with(".frame")) std::filesystem::remove(folder / name);
    }
  }
}

TEST_F(Pipewire, AConsumerThatStopsReadingHoldsUpNobody) {
  shareCamera();
  Process stopped = stack->consumer(kNode, {"!", "image/jpeg", "!", "fakesink"}, 100);
  ASSERT_TRUE(isStarted());
  ASSERT_TRUE(sendUntil([&] { return !statusHasNow(R"("shown":0)"); }, [&] { send(blankJpeg()); }));
  stopped.signal(SIGSTOP);
  ASSERT_TRUE(
      sendUntil([&] { return !statusHasNow(R"("dropped":0)"); }, [&] { send(blankJpeg(500000)); }));
  host.send(announce(2, "Back"));
  EXPECT_TRUE(eventually([this] { return stack->hasNode("lumsar.id-2"); }));
  stopped.signal(SIGCONT);
  EXPECT_TRUE(sendUntilEnded(stopped, [&] { send(blankJpeg()); })) << stopped.output();
}

TEST_F(Pipewire, FramesOfAnotherEncodingDoNotReachAConsumerOfJpeg) {
  shareCamera();
  Process consumer = stack->consumer(
      kNode, {"!", "image/jpeg", "!", "multifilesink", "location=" + (folder / "%05d.frame")});
  ASSERT_TRUE(isStarted());
  ASSERT_TRUE(sendUntil([&] { return !readFile(folder / "00000.frame").empty(); },
                        [&] { send(blankJpeg()); }));
  const Bytes unit = noise(1000, 1);
  EXPECT_TRUE(sendUntil([&] { return !statusHasNow(R"("dropped":0)"); }, [&] { sendH264(unit); }));
  for (const std::string& name : folder.files()) {
    const bool isFrame = name.ends_with(".frame");
    EXPECT_TRUE(!isFrame || bytesOf(readFile(folder / name)) == blankJpeg()) << name;
  }
}

TEST_F(Pipewire, AProgramThatIsRefusedDoesNotDisturbTheOneThatIsServed) {
  shareCamera();
  Process first = stack->consumer(
      kNode, {"!", "image/jpeg", "!", "multifilesink", "location=" + (folder / "%05d.frame")});
  ASSERT_TRUE(isStarted());
  const auto next = [&] { send(blankJpeg()); };
  ASSERT_TRUE(sendUntil([&] { return !readFile(folder / "00000.frame").empty(); }, next));
  Process refused = stack->consumer(kNode, {"!", "video/x-raw,format=I420", "!", "fakesink"}, 1);
  ASSERT_TRUE(sendUntil([&] { return !refused.running(); }, next));
  EXPECT_NE(refused.wait(), 0) << refused.output();
  const std::size_t before = folder.files().size();
  EXPECT_TRUE(sendUntil([&] { return folder.files().size() > before + 30; }, next));
  EXPECT_EQ(agent->countOf("PipeWire does not serve it"), 0);
}

}  // namespace
}  // namespace lumsar::test
