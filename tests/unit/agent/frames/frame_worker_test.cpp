// FrameWorker: bounded, newest wins, nothing that was taken on is lost at the end.
#include "frames/frame_worker.h"

#include <gtest/gtest.h>

#include <atomic>
#include <future>

#include "support/eventually.h"

namespace lumsar::test {
namespace {

using namespace agent;

FramePtr numbered(std::uint32_t number) {
  auto frame = std::make_shared<Frame>();
  frame->format.sequence = number;
  return frame;
}

TEST(FrameWorker, DropsTheOldestWhenTheWorkIsSlow) {
  std::promise<void> go;
  auto gate = go.get_future().share();
  std::vector<std::uint32_t> seen;
  std::atomic<bool> busy{false};
  FrameWorker worker(2, [&](const Frame& frame) {
    busy = true;
    gate.wait();
    seen.push_back(frame.format.sequence);
    return frame.format.sequence != 4;
  });
  worker.push(numbered(1));
  ASSERT_TRUE(eventually([&] { return busy.load(); }));
  for (std::uint32_t i = 2; i <= 5; ++i) worker.push(numbered(i));
  EXPECT_EQ(worker.dropped(), 2U);
  go.set_value();
  worker.close();
  EXPECT_TRUE(eventually([&] { return worker.closed(); }));
  EXPECT_EQ(seen, (std::vector<std::uint32_t>{1, 4, 5}));
  EXPECT_EQ(worker.delivered(), 2U);
  EXPECT_EQ(worker.dropped(), 3U);  // with the one whose work failed
  worker.push(numbered(6));
  EXPECT_EQ(seen.size(), 3U);
}

TEST(FrameWorker, DropsWholeFramesAboveItsLimitOfBytes) {
  std::promise<void> go;
  FrameWorker worker(16, [gate = go.get_future().share()](const Frame&) {
    gate.wait();
    return true;
  });
  auto large = std::make_shared<Frame>();
  large->data.resize(FrameWorker::kMaxBytes / 2);
  for (int i = 0; i < 5; ++i) worker.push(large);
  EXPECT_GE(worker.dropped(), 2U);  // two wait, and one may be in work
  go.set_value();
}

TEST(FrameWorker, PushNeverWaits) {
  std::promise<void> go;
  FrameWorker worker(1, [gate = go.get_future().share()](const Frame&) {
    gate.wait();
    return true;
  });
  const auto begin = std::chrono::steady_clock::now();
  for (std::uint32_t i = 0; i < 1000; ++i) worker.push(numbered(i));
  EXPECT_LT(std::chrono::steady_clock::now() - begin, kAtOnce);
  go.set_value();
}

}  // namespace
}  // namespace lumsar::test
