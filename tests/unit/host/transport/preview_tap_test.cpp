// PreviewTap: which frames are copied for a preview, and that nothing is while nobody wants any.
#include "transport/preview_tap.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>

#include "support/eventually.h"
#include "support/messages.h"
#include "transport/send_queue.h"

namespace lumsar::test {
namespace {

using namespace host;

Bytes unit(std::uint32_t camera, std::uint32_t sequence, std::uint32_t flags = 0,
           std::size_t size = 100) {
  const Bytes body = frameBody(sequence, Bytes(size), kEncodingH264, flags);
  return message(MSG_DATA, record(CameraDataKind::Frame, camera, body, cameraClock()));
}

struct PreviewTapTest : testing::Test {
  PreviewTapTest() {
    tap.pass(announce(1, "Front"));
    tap.pass(announce(2, "Back"));
    tap.open();
  }
  void copy(View frame) { tap.copy(frame, now); }
  // The sequence number of the next one.
  std::optional<std::uint32_t> next() {
    const auto frame = tap.take();
    return frame ? std::optional(frame->fields.sequence) : std::nullopt;
  }

  PreviewTap tap;
  PreviewTap::Clock::time_point now = PreviewTap::Clock::now();
};

TEST_F(PreviewTapTest, SaysWhoseFrameItIs) {
  const Bytes jpeg = blankJpeg();
  tap.sent(frame(2, 7, jpeg));
  const auto copied = tap.take();
  ASSERT_TRUE(copied);
  EXPECT_EQ(copied->camera, "id-2");
  EXPECT_EQ(copied->fields.sequence, 7U);
  EXPECT_EQ(copied->data, jpeg);
  EXPECT_FALSE(tap.take());
}

TEST_F(PreviewTapTest, ClosedItCopiesNothing) {
  copy(frame(1, 1, blankJpeg()));
  tap.close();
  tap.sent(frame(1, 2, blankJpeg()));
  copy(frame(1, 3, blankJpeg()));
  EXPECT_EQ(next(), std::nullopt);
  tap.open();
  copy(frame(1, 4, blankJpeg()));
  EXPECT_EQ(next(), 4U);
}

TEST_F(PreviewTapTest, CopiesAFrameOfACameraInEachInterval) {
  copy(frame(1, 1, blankJpeg()));
  copy(frame(2, 2, blankJpeg()));
  now += kPreviewInterval - std::chrono::milliseconds(1);
  copy(frame(1, 3, blankJpeg()));
  EXPECT_EQ(next(), 1U);
  EXPECT_EQ(next(), 2U);
  EXPECT_EQ(next(), std::nullopt);
  now += std::chrono::milliseconds(1);
  copy(frame(1, 4, blankJpeg()));
  EXPECT_EQ(next(), 4U);
}

TEST_F(PreviewTapTest, TheNewestFrameReplacesTheOneThatWaits) {
  for (std::uint32_t i = 1; i <= 100; ++i, now += kPreviewInterval) copy(frame(1, i, blankJpeg()));
  EXPECT_EQ(next(), 100U);
  EXPECT_EQ(next(), std::nullopt);
}

TEST_F(PreviewTapTest, KeepsTheUnitsOfH264FromAKeyFrameOn) {
  copy(unit(1, 1));
  copy(unit(1, 2, kFrameIsKey));
  copy(unit(1, 3));
  copy(unit(2, 10, kFrameIsKey));
  EXPECT_EQ(next(), 2U);
  EXPECT_EQ(next(), 10U) << "the cameras take turns";
  EXPECT_EQ(next(), 3U);
  copy(frame(1, 4, blankJpeg()));
  copy(unit(1, 5));
  EXPECT_EQ(next(), 4U);
  EXPECT_EQ(next(), std::nullopt) << "those before it are missing";
}

TEST_F(PreviewTapTest, AfterAGapH264WaitsForAKeyFrame) {
  copy(unit(1, 1, kFrameIsKey));
  copy(unit(1, 2));
  copy(unit(1, 4));
  copy(unit(1, 5));
  copy(unit(1, 6, kFrameIsKey));
  copy(unit(1, 7));
  std::vector<std::uint32_t> copied;
  while (const auto sequence = next()) copied.push_back(*sequence);
  EXPECT_EQ(copied, (std::vector<std::uint32_t>{1, 2, 6, 7}));
}

TEST_F(PreviewTapTest, RestsFromH264ThatNobodyTakesInTime) {
  std::uint32_t sequence = 0;
  const auto fallBehind = [&] {
    for (std::size_t i = 0; i <= kMaxPreviewUnits; ++i) copy(unit(1, ++sequence, kFrameIsKey));
    const auto copied = tap.take();
    ASSERT_TRUE(copied);
    EXPECT_TRUE(copied->data.empty());
  };
  // Whether it is copied after that time.
  const auto takes = [&](PreviewTap::Clock::duration later, std::uint32_t flags) {
    now += later;
    copy(unit(1, ++sequence, flags));
    return next() == sequence;
  };
  constexpr std::chrono::milliseconds kMoment{1};
  fallBehind();
  EXPECT_FALSE(takes(kFirstPreviewRest - kMoment, kFrameIsKey));
  EXPECT_FALSE(takes(kMoment, 0)) << "it has to begin again";
  EXPECT_TRUE(takes(kMoment, kFrameIsKey));
  EXPECT_TRUE(takes(kMoment, 0));
  fallBehind();
  EXPECT_FALSE(takes(2 * kFirstPreviewRest, 0)) << "what it needs was given up";
  EXPECT_TRUE(takes(kMoment, kFrameIsKey));
  fallBehind();
  EXPECT_FALSE(takes(2 * kFirstPreviewRest, kFrameIsKey)) << "it did not help";
  EXPECT_TRUE(takes(2 * kFirstPreviewRest, kFrameIsKey));
  for (int i = 0; i < 10; ++i) {
    fallBehind();
    EXPECT_TRUE(takes(kLongestPreviewRest, kFrameIsKey));
  }
  fallBehind();
  tap.open();
  EXPECT_TRUE(takes(kMoment, kFrameIsKey));
}

TEST_F(PreviewTapTest, KeepsNoMoreBytesThanItsLimit) {
  copy(unit(1, 1, kFrameIsKey, kMaxPreviewBytes));
  copy(unit(1, 2));
  EXPECT_TRUE(tap.take()->data.empty());
  EXPECT_FALSE(tap.take());
  copy(frame(2, 1, blankJpeg(kMaxPreviewBytes + 1)));
  EXPECT_TRUE(tap.take()->data.empty());
  now += kPreviewInterval;
  copy(frame(2, 2, blankJpeg(kMaxPreviewBytes)));
  EXPECT_EQ(tap.take()->data.size(), kMaxPreviewBytes);
}

TEST_F(PreviewTapTest, LeavesOutCamerasThatAreNotAnnounced) {
  copy(frame(3, 1, blankJpeg()));
  copy(frame(1, 2, blankJpeg()));
  tap.pass(removed(1));
  copy(frame(1, 3, blankJpeg()));
  EXPECT_EQ(next(), std::nullopt);
  tap.forget();
  copy(frame(2, 4, blankJpeg()));
  EXPECT_EQ(next(), std::nullopt);
}

TEST_F(PreviewTapTest, SurvivesWhatIsNoFrame) {
  const Bytes whole = frame(1, 1, blankJpeg());
  for (std::size_t size = 0; size < kHeaderSize + 32; ++size) copy(View(whole).first(size));
  copy(hello(1));
  EXPECT_EQ(next(), std::nullopt);
}

TEST_F(PreviewTapTest, WhoWaitsIsTold) {
  using Event = PreviewTap::Event;
  std::atomic<bool> isTaken = false;
  std::thread waiting([&] {
    EXPECT_EQ(tap.wait(), Event::Changed);
    EXPECT_EQ(tap.wait(), Event::Frame);
    EXPECT_EQ(next(), 1U);
    isTaken = true;
    EXPECT_EQ(tap.wait(), Event::Ended);
  });
  copy(frame(1, 1, blankJpeg()));
  EXPECT_TRUE(eventually([&] { return isTaken.load(); }));
  tap.end();
  waiting.join();
}

std::string whose(PreviewTap& tap) {
  const auto frame = tap.take();
  return frame ? frame->camera : "";
}

struct PreviewTapOfAQueue : testing::Test {
  PreviewTapOfAQueue() {
    tap->open();
    queue.setTap(tap);
    queue.push(announce(1, "Front"));
  }

  const std::shared_ptr<PreviewTap> tap = std::make_shared<PreviewTap>();
  SendQueue queue;
};

// A transport that has sent all it has taken, on a line that takes everything at once.
TEST_F(PreviewTapOfAQueue, GetsTheFramesThatLeaveEitherWay) {
  queue.push(announce(2, "Back"));
  queue.push(announce(3, "Side"));
  queue.push(frame(1, 1, blankJpeg()));
  EXPECT_FALSE(tap->take()) << "it has not left";
  while (queue.pop()) continue;
  EXPECT_EQ(whose(*tap), "id-1");
  queue.setSendNow([](View message) { return message.size(); });
  queue.push(frame(2, 1, blankJpeg()));
  EXPECT_EQ(whose(*tap), "id-2");
  queue.open();
  queue.push(frame(3, 1, blankJpeg()));
  while (queue.pop()) continue;
  EXPECT_FALSE(tap->take()) << "on this connection it has not been announced";
}

TEST_F(PreviewTapOfAQueue, GetsNoFrameThatIsDropped) {
  for (std::uint32_t i = 0; i <= kSendLimits.frames; ++i) queue.push(frame(1, i, blankJpeg()));
  while (queue.pop()) continue;
  EXPECT_EQ(tap->take()->fields.sequence, 1U) << "of two, the first is dropped";
}

}  // namespace
}  // namespace lumsar::test
