// Camera: started while it has a consumer, counted right, complete frames only.
#include "session/camera.h"

#include <gtest/gtest.h>

#include "support/messages.h"
#include "unit/agent/fake_output.h"

namespace lumsar::test {
namespace {

using namespace agent;

using namespace std::chrono_literals;

class CameraTest : public testing::Test {
 protected:
  void open(std::uint32_t encoding = kEncodingMjpg, int sinks = 1) {
    std::vector<std::unique_ptr<Sink>> all;
    FakeOutput output;
    for (int i = 0; i < sinks; ++i) all.push_back(output.open({}, 1, "label", [] {}));
    states = output.sinks;
    auto info =
        protocol::readAnnouncement({.camera = 4}, announcedBody("id", "name", encoding)).value();
    camera.emplace(
        info, 1, std::move(all),
        [this](CameraDataKind kind, View body) {
          if (kind == CameraDataKind::Received) {
            received.push_back(take<CameraReceived>(body)->sequence);
            return;
          }
          asked.push_back(kind);
          if (kind == CameraDataKind::Statistics) statistics = *take<CameraStatistics>(body);
          if (kind == CameraDataKind::WantedSize) size = *take<CameraSize>(body);
        },
        budget);
  }
  void look(bool wanted = true, std::size_t sink = 0) {
    states[sink]->wanted = wanted;
    camera->update(now);
  }
  void frame(std::uint32_t sequence, const Bytes& jpeg = blankJpeg(), std::uint64_t age = 1000,
             std::uint32_t encoding = kEncodingMjpg, std::uint32_t flags = kFrameIsKey) {
    camera->takeFrame({.camera = 4, .time = cameraClock() - age},
                      frameBody(sequence, jpeg, encoding, flags));
  }
  FrameSize wanted() const { return {size.width, size.height}; }
  std::size_t shown(std::size_t sink = 0) const { return states[sink]->shown.size(); }

  FrameBudget budget{std::size_t{1} << 20U};
  std::optional<Camera> camera;
  std::vector<std::shared_ptr<FakeSinkState>> states;
  std::vector<CameraDataKind> asked;
  std::vector<std::uint32_t> received;
  CameraStatistics statistics;
  CameraSize size;
  Clock::time_point now = Clock::now();
};

using Kinds = std::vector<CameraDataKind>;

TEST_F(CameraTest, TheSizeOfItsOnlyConsumerIsToldBeforeItStartsAndWhenItChanges) {
  open(kEncodingMjpg, 2);
  states[0]->wantedSize = FrameSize{320, 240};
  look();
  EXPECT_EQ(asked, (Kinds{CameraDataKind::WantedSize, CameraDataKind::Start}));
  EXPECT_EQ(wanted(), (FrameSize{320, 240}));
  states[0]->wantedSize = FrameSize{160, 120};
  look();
  EXPECT_EQ(wanted(), (FrameSize{160, 120}));
  look(true, 1);
  EXPECT_EQ(wanted(), FrameSize{}) << "of two, each makes its own";
  look(false, 1);
  EXPECT_EQ(wanted(), (FrameSize{160, 120}));
  const std::size_t before = asked.size();
  look();
  EXPECT_EQ(asked.size(), before) << "once";
}

TEST_F(CameraTest, TheSizeIsToldAgainWithEachStart) {
  open();
  states[0]->wantedSize = FrameSize{320, 240};
  look();
  look(false);
  now += 1s;
  camera->update(now);
  look();
  EXPECT_EQ(std::ranges::count(asked, CameraDataKind::WantedSize), 2);
  camera->repeatStart();
  EXPECT_EQ(std::ranges::count(asked, CameraDataKind::WantedSize), 3);
}

TEST_F(CameraTest, TheCamerasOwnSizeIsNoWish) {
  open();
  states[0]->wantedSize = FrameSize{640, 480};
  look();
  EXPECT_EQ(asked, Kinds{CameraDataKind::Start});
}

TEST_F(CameraTest, TheServiceIsToldOfTheFramesThatItAsksFor) {
  open();
  look();
  EXPECT_EQ(received, std::vector<std::uint32_t>{0}) << "that it will be";
  frame(7);
  EXPECT_EQ(received.size(), 1U) << "not asked for";
  frame(8, blankJpeg(), 1000, kEncodingMjpg, kFrameIsKey | kFrameIsAsked);
  frame(9, bytesOf("damaged"), 1000, kEncodingMjpg, kFrameIsAsked);
  EXPECT_EQ(received, (std::vector<std::uint32_t>{0, 8, 9}));
  EXPECT_EQ(shown(), 2U);
}

TEST_F(CameraTest, NobodyLooksNothingIsAskedFor) {
  open();
  camera->update(now);
  camera->update(now + 10s);
  EXPECT_TRUE(asked.empty());
}

TEST_F(CameraTest, StartsOnceAndStopsAWhileAfterTheLastLook) {
  open(kEncodingMjpg, 2);
  look(true, 0);
  look(true, 1);
  look(false, 0);
  EXPECT_EQ(asked, Kinds{CameraDataKind::Start});
  look(false, 1);
  now += 400ms;
  camera->update(now);
  look(true, 1);  // back in time
  look(false, 1);
  now += 400ms;
  camera->update(now);
  EXPECT_EQ(asked, Kinds{CameraDataKind::Start});
  now += 200ms;
  camera->update(now);
  EXPECT_EQ(asked, (Kinds{CameraDataKind::Start, CameraDataKind::Stop}));
}

TEST_F(CameraTest, OnlySinksWithAConsumerGetFrames) {
  open(kEncodingMjpg, 2);
  look(true, 1);
  frame(0);
  EXPECT_EQ(shown(0), 0U);
  EXPECT_EQ(shown(1), 1U);
  EXPECT_EQ(states[1]->shown[0]->data, blankJpeg());
}

TEST_F(CameraTest, FramesAfterStopAreNotCounted) {
  open();
  frame(0);
  EXPECT_EQ(camera->status().counters.frames, 0U);
}

TEST_F(CameraTest, WhatIsNoJpegIsDroppedAndCounted) {
  open();
  look();
  frame(0, bytesOf("no picture"));
  frame(1, {});
  Bytes cut = blankJpeg();
  cut.pop_back();
  frame(2, cut);
  frame(3, blankJpeg(), 1000, fourcc("YUYV"));
  camera->takeFrame({.camera = 4}, bytesOf("short"));
  frame(4);
  const auto status = camera->status();
  EXPECT_EQ(shown(), 1U);
  EXPECT_EQ(status.counters.frames, 5U);
  EXPECT_EQ(status.counters.bad, 5U);
  EXPECT_EQ(status.dropped, 5U);
}

TEST_F(CameraTest, CountsGapsButNotStepsBack) {
  open();
  look();
  for (const std::uint32_t sequence : {5U, 6U, 9U, 10U, 0U, 1U}) frame(sequence);
  EXPECT_EQ(camera->status().counters.lost, 2U);
}

TEST_F(CameraTest, CountsAcrossTheEndOfTheNumbers) {
  open();
  look();
  for (const std::uint32_t sequence : {0xFFFFFFFEU, 0xFFFFFFFFU, 0U, 2U}) frame(sequence);
  EXPECT_EQ(camera->status().counters.lost, 1U);
}

TEST_F(CameraTest, MeasuresLatencyAlsoWhenTheClockIsAhead) {
  open();
  look();
  frame(0, blankJpeg(), 2'000'000);
  frame(1, blankJpeg(), 1'000'000);
  frame(2, blankJpeg(), std::uint64_t{0} - 5'000'000);  // captured in the future
  const auto status = camera->status();
  EXPECT_NEAR(static_cast<double>(status.latencyMedian), 1e6, 1e5);
  EXPECT_NEAR(static_cast<double>(status.latency99), 2e6, 1e5);
  EXPECT_NEAR(static_cast<double>(status.latencyWorst), 2e6, 1e5);
}

TEST_F(CameraTest, SendsStatisticsEachSecondSinceStart) {
  open();
  look();
  frame(0);
  frame(2);
  states[0]->report.dropped = 1;
  now += 900ms;
  camera->update(now);
  EXPECT_EQ(asked, Kinds{CameraDataKind::Start});
  now += 100ms;
  camera->update(now);
  EXPECT_EQ(asked, (Kinds{CameraDataKind::Start, CameraDataKind::Statistics}));
  EXPECT_EQ(statistics.frames, 2U);
  EXPECT_EQ(statistics.bytes, 2000U);
  EXPECT_EQ(statistics.lost, 1U);
  EXPECT_EQ(statistics.dropped, 1U);
  EXPECT_EQ(statistics.rate, 2000U);
  EXPECT_GE(statistics.latency, 1000U);
}

TEST_F(CameraTest, StatisticsBeginAnewWithEachStart) {
  open();
  look();
  frame(0);
  look(false);
  now += 1s;
  camera->update(now);
  look(true);
  frame(7);
  now += 1s;
  camera->update(now);
  EXPECT_EQ(statistics.frames, 1U);
  EXPECT_EQ(statistics.lost, 0U);
  EXPECT_EQ(camera->status().counters.frames, 2U);
}

TEST_F(CameraTest, VideoWaitsForAKeyFrameAtTheBeginningAndAfterAGap) {
  open(kEncodingH264);
  look();
  const auto video = [&](std::uint32_t sequence, bool key) {
    frame(sequence, bytesOf("nal"), 1000, kEncodingH264, key ? kFrameIsKey : 0);
  };
  video(0, false);
  EXPECT_EQ(shown(), 0U);
  EXPECT_EQ(asked, (Kinds{CameraDataKind::Start, CameraDataKind::KeyFrameRequest}));
  video(1, true);
  video(2, false);
  EXPECT_EQ(shown(), 2U);
  video(4, false);
  video(5, false);
  EXPECT_EQ(shown(), 2U);
  video(6, true);
  EXPECT_EQ(shown(), 3U);
  EXPECT_EQ(camera->status().counters.bad, 3U);
}

TEST_F(CameraTest, ASecondWatcherOfVideoNeedsAKeyFrame) {
  open(kEncodingH264, 2);
  look(true, 0);
  frame(0, bytesOf("nal"), 1000, kEncodingH264);
  look(true, 1);
  EXPECT_EQ(asked, (Kinds{CameraDataKind::Start, CameraDataKind::KeyFrameRequest}));
}

TEST_F(CameraTest, AKeyFrameIsAskedForWhenASinkNeedsOne) {
  open(kEncodingH264);
  look();
  frame(0, bytesOf("nal"), 1000, kEncodingH264);
  EXPECT_EQ(asked, Kinds{CameraDataKind::Start});
  states[0]->needsKey = true;
  for (const std::uint32_t sequence : {1U, 2U}) {
    frame(sequence, bytesOf("nal"), 1000, kEncodingH264, 0);
  }
  EXPECT_EQ(shown(), 3U) << "it is the sink that drops what it cannot use";
  EXPECT_EQ(asked, (Kinds{CameraDataKind::Start, CameraDataKind::KeyFrameRequest})) << "not often";
}

TEST_F(CameraTest, StatusHasTheDevicesOfAllOutputs) {
  open(kEncodingMjpg, 3);
  EXPECT_EQ(camera->status().sinks.device, "");
  states[0]->report.device = "lumsar.id";
  states[2]->report.device = "/dev/video0";
  EXPECT_EQ(camera->status().sinks.device, "lumsar.id,/dev/video0");
}

TEST_F(CameraTest, RetiringTellsTheServiceOnlyWhenAsked) {
  open();
  look();
  camera->retire(true);
  EXPECT_EQ(asked.back(), CameraDataKind::Stop);
  EXPECT_TRUE(camera->sinksClosed());
  EXPECT_FALSE(camera->status().present);
}

}  // namespace
}  // namespace lumsar::test
