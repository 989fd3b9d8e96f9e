// A camera's own frames: passed through, encoded, and from one to the other while it runs. The test
// runs the io_context itself and is the camera: it delivers each frame.
#include <gst/app/gstappsrc.h>

#include "support/text.h"
#include "unit/camera-service/capture/capture_fixture.h"

namespace lumsar::test {
namespace {

using namespace service;

struct Collector : Reader {
  std::vector<Bytes> all;
  std::vector<protocol::SharedBytes> held;  // as by a queue
  bool onFrame(const CapturedFrame& frame) override {
    held.push_back(frame.data);
    all.emplace_back(frame.data.bytes.begin(), frame.data.bytes.end());
    EXPECT_EQ(jpegSize(frame.data.bytes), (PictureSize{frame.width, frame.height}))
        << "frame " << frames;
    return Reader::onFrame(frame);
  }
};

class PassThroughTest : public CaptureTest {
 protected:
  ~PassThroughTest() override {
    if (made) made->remove(collector);
  }

  // A camera of 320x240 frames, on, with a consumer that wants this quality.
  void start(int quality) {
    collector.wanted.rule.quality = quality;
    CameraStream& camera = stream({"cam:step", "step", {"MJPG", 320, 240, 30, 1}, [this] {
                                     GstElement* bin = makeSourceBin(
                                         "appsrc name=in is-live=true do-timestamp=true "
                                         "format=time caps=image/jpeg,width=320,height=240,"
                                         "framerate=30/1 ! identity silent=true");
                                     source.reset(gst_bin_get_by_name(GST_BIN(bin), "in"));
                                     return bin;
                                   }});
    camera.add(collector);
  }
  void deliver(const Bytes& frame) {
    GstBuffer* buffer = gst_buffer_new_allocate(nullptr, frame.size(), nullptr);
    gst_buffer_fill(buffer, 0, frame.data(), frame.size());
    EXPECT_EQ(gst_app_src_push_buffer(GST_APP_SRC(source.get()), buffer), GST_FLOW_OK);
  }
  // Delivers it and returns what a consumer gets.
  Bytes consumed(const Bytes& frame) {
    const std::size_t before = collector.all.size();
    deliver(frame);
    EXPECT_TRUE(await([&] { return collector.all.size() > before; })) << "no frame";
    return collector.all.size() > before ? collector.all.back() : Bytes{};
  }
  void want(int quality, int maxWidth = 4000) {
    collector.wanted.rule.quality = quality;
    collector.wanted.rule.maxWidth = maxWidth;
    made->refresh();
  }
  static std::vector<Bytes> frames(int count) {
    static constexpr std::array kPatterns = {"smpte",    "ball",    "snow", "checkers-1",
                                             "circular", "smpte75", "red",  "pinwheel"};
    std::vector<Bytes> all;
    for (int i = 0; i < count; ++i) {
      all.push_back(makeJpeg(320, 240, 85, kPatterns.at(static_cast<std::size_t>(i) % 8)));
    }
    return all;
  }

  GstPtr<GstElement> source;
  Collector collector;
};

TEST_F(PassThroughTest, TheCamerasOwnFramesAreSent) {
  start(85);
  for (const Bytes& frame : frames(8)) EXPECT_TRUE(consumed(frame) == frame);
  EXPECT_EQ(collector.all.size(), 8U);
  EXPECT_EQ(made->treatment(), "passed through");
  EXPECT_EQ(made->counters().encodeTime, 0);
  EXPECT_LT(collector.age, 1'000'000) << "µs from capture";
}

TEST_F(PassThroughTest, TheDefaultPolicyEncodesThem) {
  start(PolicyRule().quality);
  const Bytes frame = makeJpeg(320, 240, 85);
  EXPECT_LT(consumed(frame).size(), frame.size());
  EXPECT_EQ(made->treatment(),
            "encoded: the policy wants quality 50, the camera's own is about 85");
  EXPECT_GT(made->counters().encodeTime, 0);
}

TEST_F(PassThroughTest, AThinLineEncodesThem) {
  start(85);
  const Bytes frame = makeJpeg(320, 240, 85);
  EXPECT_TRUE(consumed(frame) == frame);
  collector.wanted.lineRate = made->wantedRate() / 2;
  made->refresh();
  EXPECT_LT(consumed(frame).size(), frame.size());
  EXPECT_TRUE(made->treatment().starts_with("encoded: the VM's line wants quality "))
      << made->treatment();
}

TEST_F(PassThroughTest, PaddingIsNotSent) {
  start(85);
  const Bytes frame = makeJpeg(320, 240, 85);
  Bytes padded = frame;
  padded.resize(padded.size() + 4096);
  EXPECT_TRUE(consumed(padded) == frame);
  EXPECT_TRUE(consumed(padded) == frame);
}

// A driver has few buffers, and stops without them.
TEST_F(PassThroughTest, ADriversBuffersGoBackWhileFramesWait) {
  start(85);
  const Bytes frame = makeJpeg(320, 240, 85);
  const std::unique_ptr<GstBufferPool, decltype(&gst_object_unref)> pool(gst_buffer_pool_new(),
                                                                         gst_object_unref);
  GstStructure* config = gst_buffer_pool_get_config(pool.get());
  gst_buffer_pool_config_set_params(config, nullptr, static_cast<guint>(frame.size()), 2, 2);
  ASSERT_TRUE(gst_buffer_pool_set_config(pool.get(), config));
  ASSERT_TRUE(gst_buffer_pool_set_active(pool.get(), TRUE));
  GstBufferPoolAcquireParams noWait = {};
  noWait.flags = GST_BUFFER_POOL_ACQUIRE_FLAG_DONTWAIT;
  for (std::size_t i = 1; i <= 8; ++i) {
    GstBuffer* buffer = nullptr;
    const auto acquire = [&] {
      return buffer != nullptr ||
             gst_buffer_pool_acquire_buffer(pool.get(), &buffer, &noWait) == GST_FLOW_OK;
    };
    ASSERT_TRUE(await(acquire)) << "buffer " << i;
    gst_buffer_fill(buffer, 0, frame.data(), frame.size());
    ASSERT_EQ(gst_app_src_push_buffer(GST_APP_SRC(source.get()), buffer), GST_FLOW_OK);
    ASSERT_TRUE(await([&] { return collector.all.size() == i; }));
    EXPECT_TRUE(collector.all.back() == frame);
  }
  gst_buffer_pool_set_active(pool.get(), FALSE);
}

TEST_F(PassThroughTest, WhatIsHeldStaysAsItWas) {
  start(85);
  const std::vector<Bytes> own = frames(8);
  for (const Bytes& frame : own) consumed(frame);
  made->remove(collector);
  ASSERT_EQ(collector.held.size(), own.size());
  for (std::size_t i = 0; i < own.size(); ++i) {
    EXPECT_TRUE(std::ranges::equal(collector.held[i].bytes, own[i])) << "frame " << i;
  }
}

TEST_F(PassThroughTest, AnIntervalNeedsNoEncoder) {
  start(85);
  collector.wanted.interval = 3'600'000'000;
  made->refresh();
  const Bytes frame = makeJpeg(320, 240, 85);
  EXPECT_TRUE(consumed(frame) == frame);
  deliver(frame);
  collector.wanted.interval = 0;
  while (gst_app_src_get_current_level_buffers(GST_APP_SRC(source.get())) > 0)
    runFor(milliseconds(1));
  made->refresh();
  EXPECT_TRUE(consumed(frame) == frame);
  EXPECT_LE(collector.all.size(), 3U);
}

// Two frames are on their way, as many as are kept, while the plan changes.
TEST_F(PassThroughTest, NoFrameIsMissingWhenThePolicyChanges) {
  start(85);
  const std::vector<Bytes> own = frames(8);
  struct Wish {
    int quality;
    int maxWidth;
  };
  const std::vector<Wish> wishes = {{50, 4000}, {85, 4000}, {85, 160}, {100, 4000}, {10, 200}};
  std::size_t delivered = 0;
  std::size_t passed = 0;
  for (std::size_t round = 0; round < 100; ++round) {
    const Bytes& first = own[round % own.size()];
    const Bytes& second = own[(round + 1) % own.size()];
    deliver(first);
    const Wish& wish = wishes[round % wishes.size()];
    want(wish.quality, wish.maxWidth);
    deliver(second);
    delivered += 2;
    ASSERT_TRUE(await([&] { return collector.all.size() >= delivered; })) << "round " << round;
    ASSERT_EQ(collector.all.size(), delivered);
    if (wish.quality >= 85 && wish.maxWidth == 4000) {
      ASSERT_TRUE(collector.all.back() == second) << "round " << round;
      ++passed;
    } else {
      ASSERT_TRUE(collector.all.back() != second) << "round " << round;
    }
  }
  EXPECT_EQ(passed, 40U);
  EXPECT_TRUE(made->running());
  EXPECT_TRUE(troubles.empty());
}

TEST_F(PassThroughTest, AVideoFilesFramesAreItsOwnAlsoFromItsBeginningAgain) {
  makeMovie(dir / "m.avi", 160, 120, 6);
  collector.wanted.rule.quality = 85;
  stream(fileCamera("m.avi")).add(collector);
  ASSERT_TRUE(await([&] { return collector.all.size() >= 20; })) << collector.all.size();
  const std::string file = readFile(dir / "m.avi");
  for (const Bytes& frame : collector.all) EXPECT_NE(file.find(textOf(frame)), std::string::npos);
  EXPECT_EQ(made->treatment(), "passed through");
  EXPECT_TRUE(troubles.empty());
}

TEST_F(PassThroughTest, TwoConsumersGetWhatBothAccept) {
  start(85);
  const Bytes frame = makeJpeg(320, 240, 85);
  EXPECT_TRUE(consumed(frame) == frame);
  Reader other;
  other.wanted.rule.quality = 40;
  made->add(other);
  EXPECT_TRUE(consumed(frame) != frame);
  EXPECT_EQ(made->treatment(),
            "encoded: the policy wants quality 40, the camera's own is about 85");
  made->remove(other);
  EXPECT_TRUE(consumed(frame) == frame);
}

TEST_F(PassThroughTest, ACameraThatRaisesItsQualityIsEncodedAtOnce) {
  start(85);
  const Bytes frame = makeJpeg(320, 240, 85);
  const Bytes better = makeJpeg(320, 240, 97);
  EXPECT_TRUE(consumed(frame) == frame);
  EXPECT_LT(consumed(better).size(), better.size());
  EXPECT_TRUE(consumed(frame) == frame);
}

TEST_F(PassThroughTest, ADamagedFrameIsDecodedOrLeftOutAndCounted) {
  ::testing::internal::CaptureStderr();
  start(85);
  const Bytes frame = makeJpeg(320, 240, 85);
  const Bytes cut(frame.begin(), frame.begin() + static_cast<std::ptrdiff_t>(frame.size() / 2));
  EXPECT_TRUE(consumed(frame) == frame);
  EXPECT_TRUE(consumed(cut) != cut);
  EXPECT_EQ(made->treatment(), "encoded: the camera's frame is cut off");
  deliver(Bytes(1000, 0));
  deliver({});
  deliver({frame.begin() + 2, frame.end()});
  EXPECT_TRUE(consumed(frame) == frame) << "and goes on";
  EXPECT_EQ(made->counters().damaged, 4U);
  EXPECT_TRUE(troubles.empty());
  EXPECT_EQ(occurrences(::testing::internal::GetCapturedStderr(),
                        "'cam:step' delivered a frame that is cut off; such frames"),
            1);
}

TEST_F(PassThroughTest, ADamagedFrameAtFirstHoldsNothingUp) {
  start(85);
  const Bytes frame = makeJpeg(320, 240, 85);
  deliver(Bytes(1000, 0));
  EXPECT_TRUE(consumed(frame) == frame);
  EXPECT_TRUE(consumed(frame) == frame);
}

TEST_F(PassThroughTest, ASizeThatChangesInMidStreamIsNotSent) {
  start(85);
  const Bytes frame = makeJpeg(320, 240, 85);
  EXPECT_TRUE(consumed(frame) == frame);
  for (const PictureSize other : {PictureSize{160, 120}, {640, 480}, {64, 200}}) {
    const Bytes changed = makeJpeg(other.width, other.height, 85);
    EXPECT_EQ(jpegSize(consumed(changed)), (PictureSize{320, 240}));
  }
  EXPECT_TRUE(consumed(frame) == frame);
}

TEST_F(PassThroughTest, FramesWithoutHuffmanTablesGetThem) {
  start(85);
  const Bytes frame = makeJpeg(320, 240, 85);
  const Bytes brief = withoutSegments(frame, 0xC4);
  EXPECT_NE(withoutSegments(consumed(brief), 0xC4).size(), brief.size());
  EXPECT_EQ(made->treatment(), "encoded: the camera's frame lacks Huffman tables");
  EXPECT_EQ(made->counters().damaged, 0U);
}

}  // namespace
}  // namespace lumsar::test
