// A camera over a line of 2 Mbit/s with 50 ms each way, which is cut for some seconds.
#include "thin_line/thin_chain.h"

#include <gst/gst.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "capture/encoder.h"
#include "unit/camera-service/media.h"

namespace lumsar::test {
namespace {

constexpr std::size_t kBytesPerSecond = 250'000;

class ThinLine : public testing::TestWithParam<const char*> {
 protected:
  static bool isH264() { return GetParam() == std::string("H264"); }
  std::size_t count() const { return chain.arrivals().size(); }
  bool framesFlow(std::size_t more) {
    const std::size_t before = count();
    return eventually([&] { return count() >= before + more; });
  }
  bool isFollowed() const { return chain.status().find("kbit/s, as frames") != std::string::npos; }

  // More than the line takes, however it is encoded.
  std::string movie() const {
    gst_init(nullptr, nullptr);
    makeMovie(directory / "snow.avi", 800, 600, 60, 50, "snow");
    return "file:" + (directory / "snow.avi");
  }

  const TemporaryDirectory directory;
  ThinChain chain{{LUMSAR_BIN,
                   movie(),
                   "file:snow.avi",
                   "\"cameraQuality\":100,\"cameraEncodeType\":\"" + std::string(GetParam()) + "\"",
                   {.bytesPerSecond = kBytesPerSecond, .delay = milliseconds(50)}}};
};

TEST_P(ThinLine, FramesFlowBeforeAndAfterAGap) {
  if (isH264() && !service::h264Available()) GTEST_SKIP() << "no H.264 encoder is installed";
  ASSERT_TRUE(framesFlow(1)) << chain.logs();
  ASSERT_TRUE(eventually([this] { return isFollowed(); })) << chain.status();
  EXPECT_NE(chain.status(false).find("kbit/s, as frames"), std::string::npos);
  ASSERT_TRUE(framesFlow(30));
  chain.cut(true);
  std::this_thread::sleep_for(std::chrono::seconds(3));
  const std::uint64_t end = cameraClock();
  chain.clear();
  chain.cut(false);
  ASSERT_TRUE(framesFlow(60));
  const auto arrivals = chain.arrivals();
  std::size_t old = 0;
  for (const Arrival& arrival : arrivals) old += arrival.captured < end ? arrival.size : 0;
  EXPECT_LT(old, kBytesPerSecond) << "what was sent into the gap";
  EXPECT_TRUE(std::ranges::is_sorted(
      arrivals, {}, [](const Arrival& arrival) { return arrival.frame.sequence; }));
  if (!isH264()) return;
  const auto keys = std::ranges::count_if(arrivals, &Arrival::isKey);
  EXPECT_LE(keys, 8) << "of " << arrivals.size() << " frames, one in 60 and one for each new size";
}

INSTANTIATE_TEST_SUITE_P(Encodings, ThinLine, testing::Values("MJPG", "H264"),
                         [](const auto& tested) { return std::string(tested.param); });

}  // namespace
}  // namespace lumsar::test
