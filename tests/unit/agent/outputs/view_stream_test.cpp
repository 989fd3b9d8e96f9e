// ViewStream: each reader gets the newest frame, no old ones, and learns of the end.
#include "outputs/web/view_stream.h"

#include <gtest/gtest.h>

#include <thread>

namespace lumsar::test {
namespace {

using namespace agent;

using namespace std::chrono_literals;

class ViewStreamTest : public testing::Test {
 protected:
  FramePtr deliver() {
    auto frame = std::make_shared<Frame>();
    stream->deliver(frame);
    return frame;
  }

  Bell bell;
  int changes = 0;
  std::shared_ptr<ViewStream> stream = std::make_shared<ViewStream>([this] { ++changes; });
};

TEST_F(ViewStreamTest, AReaderGetsTheNewestFrameOnce) {
  ViewStream::Reader reader(stream, bell);
  EXPECT_EQ(reader.next(1ms), nullptr);
  deliver();
  const FramePtr newest = deliver();
  EXPECT_EQ(reader.next(1ms), newest);
  EXPECT_EQ(reader.next(1ms), nullptr);
  EXPECT_EQ(stream->report().delivered, 1U);
  EXPECT_EQ(stream->report().dropped, 1U);
}

TEST_F(ViewStreamTest, ASecondReaderBeginsWithTheCurrentFrame) {
  ViewStream::Reader first(stream, bell);
  const FramePtr frame = deliver();
  EXPECT_EQ(first.next(1ms), frame);
  ViewStream::Reader second(stream, bell);
  EXPECT_EQ(second.next(1ms), frame);
  EXPECT_EQ(stream->report().delivered, 1U);
}

TEST_F(ViewStreamTest, AReaderDoesNotBeginWithAnOldFrame) {
  {
    const ViewStream::Reader reader(stream, bell);
    deliver();
    EXPECT_TRUE(stream->hasConsumer());
  }
  EXPECT_FALSE(stream->hasConsumer());
  EXPECT_EQ(changes, 2);
  ViewStream::Reader reader(stream, bell);
  EXPECT_EQ(reader.next(1ms), nullptr);
}

TEST_F(ViewStreamTest, OneBellIsEnoughForManyStreams) {
  const auto other = std::make_shared<ViewStream>([] {});
  ViewStream::Reader first(stream, bell);
  ViewStream::Reader second(other, bell);
  const auto frame = std::make_shared<Frame>();
  std::thread camera([&] { other->deliver(frame); });
  bell.wait(10s);
  EXPECT_EQ(first.take(), nullptr);
  EXPECT_EQ(second.take(), frame);
  EXPECT_EQ(second.take(), nullptr);
  camera.join();
}

TEST_F(ViewStreamTest, ClosingEndsTheWaitAndTheNotifications) {
  ViewStream::Reader reader(stream, bell);
  changes = 0;
  stream->close();
  EXPECT_TRUE(stream->closed());
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(reader.next(10s), nullptr);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, 5s);
  const ViewStream::Reader late(stream, bell);
  EXPECT_EQ(changes, 0);
}

}  // namespace
}  // namespace lumsar::test
