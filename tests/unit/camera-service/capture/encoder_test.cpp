// Tests of encoder.h: what each H.264 encoder that is installed makes of its bit rate.
#include "capture/encoder.h"

#include <gst/app/gstappsink.h>
#include <gtest/gtest.h>

#include <string_view>

#include "base/text/format.h"
#include "formats/line_plan.h"
#include "lumsar/camera_data.h"

namespace lumsar::test {
namespace {

using namespace service;

CapturePlan planOf(int width, int height) {
  CapturePlan plan;
  plan.source = {"I420", width, height, 30, 1};
  plan.width = width;
  plan.height = height;
  plan.quality = 50;
  plan.encoding = kEncodingH264;
  return plan;
}

constexpr GstClockTime kTimeout = 60 * GST_SECOND;

// Some encoders have one that is fixed while they run.
bool hasLiveBitRate(GstElement* encoder) {
  const GstPtr<GstElement> element(gst_bin_get_by_name(GST_BIN(encoder), "h264"));
  const GParamSpec* const property =
      g_object_class_find_property(G_OBJECT_GET_CLASS(element.get()), "bitrate");
  return property == nullptr || (property->flags & GST_PARAM_MUTABLE_PLAYING) != 0;
}

enum class Frames { All, OneInThree };

// Noise: whatever the bit rate, there is no room for it.
class Encoding {
 public:
  explicit Encoding(GstElement* encoder, Frames frames = Frames::All)
      : m_encoder(GST_ELEMENT(gst_object_ref_sink(encoder))),
        m_pipeline(
            gst_parse_launch("videotestsrc pattern=snow ! "
                             "video/x-raw,format=I420,width=640,height=480,framerate=30/1 ! "
                             "videoconvert name=last appsink name=sink sync=false max-buffers=1",
                             nullptr)) {
    GstBin* const bin = GST_BIN(m_pipeline.get());
    const GstPtr<GstElement> last(gst_bin_get_by_name(bin, "last"));
    m_sink.reset(gst_bin_get_by_name(bin, "sink"));
    if (frames == Frames::OneInThree) leaveOut(last.get());
    gst_bin_add(bin, m_encoder.get());
    gst_element_link_many(last.get(), m_encoder.get(), m_sink.get(), nullptr);
    gst_element_set_state(m_pipeline.get(), GST_STATE_PLAYING);
  }
  ~Encoding() { gst_element_set_state(m_pipeline.get(), GST_STATE_NULL); }
  Encoding(const Encoding&) = delete;
  Encoding& operator=(const Encoding&) = delete;

  GstElement* encoder() const { return m_encoder.get(); }

  // Of the next seconds, once its rate control has settled.
  double bitsASecond() {
    bytesUntil(m_time + 2);
    const double begin = m_time;
    const double bytes = bytesUntil(begin + 3);
    return bytes * 8 / (m_time - begin);
  }
  // Of a stream of a second that begins again, as a video file does.
  int framesFromTheBeginning() {
    gst_element_seek(m_pipeline.get(), 1, GST_FORMAT_TIME, GST_SEEK_FLAG_FLUSH, GST_SEEK_TYPE_SET,
                     0, GST_SEEK_TYPE_SET, GST_SECOND);
    int frames = 0;
    while (GstPtr<GstSample>(gst_app_sink_try_pull_sample(GST_APP_SINK(m_sink.get()), kTimeout))) {
      ++frames;
    }
    return frames;
  }
  double framesASecond() const { return m_frames / m_time; }

 private:
  static void leaveOut(GstElement* before) {
    const GstPtr<GstPad> pad(gst_element_get_static_pad(before, "src"));
    gst_pad_add_probe(
        pad.get(), GST_PAD_PROBE_TYPE_BUFFER,
        [](GstPad*, GstPadProbeInfo*, gpointer data) {
          return (*held<int>(data))++ % 3 == 0 ? GST_PAD_PROBE_OK : GST_PAD_PROBE_DROP;
        },
        holdShared(std::make_shared<int>(0)), releaseShared<int>);
  }
  // An encoder may leave frames out.
  double bytesUntil(double time) {
    double bytes = 0;
    while (m_time < time) {
      const GstPtr<GstSample> sample(
          gst_app_sink_try_pull_sample(GST_APP_SINK(m_sink.get()), kTimeout));
      if (!sample) throw std::runtime_error("the encoder has ended or hangs");
      GstBuffer* const buffer = gst_sample_get_buffer(sample.get());
      bytes += static_cast<double>(gst_buffer_get_size(buffer));
      ++m_frames;
      m_time = static_cast<double>(GST_BUFFER_PTS(buffer)) / static_cast<double>(GST_SECOND);
    }
    return bytes;
  }

  double m_time = 0;
  int m_frames = 0;
  const GstPtr<GstElement> m_encoder;
  const GstPtr<GstElement> m_pipeline;
  GstPtr<GstElement> m_sink;
};

class EncoderTest : public testing::Test {
 protected:
  static void SetUpTestSuite() { gst_init(nullptr, nullptr); }
};

TEST_F(EncoderTest, EachFollowsItsBitRateWhileItRuns) {
  const auto encoders = h264Encoders();
  if (encoders.empty()) GTEST_SKIP() << "no H.264 encoder is installed";
  for (const std::string& name : encoders) {
    SCOPED_TRACE(name);
    CapturePlan plan = planOf(640, 480);
    plan.bitRate = 2'000'000;
    Encoding encoding(makeH264Encoder(name, plan));
    const double full = plan.bitRate;
    EXPECT_NEAR(encoding.bitsASecond(), full, full / 2);
    if (!hasLiveBitRate(encoding.encoder())) continue;
    plan.bitRate /= 4;
    plan.isThinned = true;
    setEncoderRate(encoding.encoder(), plan);
    EXPECT_NEAR(encoding.bitsASecond(), full / 4, full / 8);
    plan.bitRate *= 4;
    plan.isThinned = false;
    setEncoderRate(encoding.encoder(), plan);
    EXPECT_NEAR(encoding.bitsASecond(), full, full / 2);
  }
}

// Where they are left out as a line is full, larger ones would fill it again.
TEST_F(EncoderTest, FramesThatAreLeftOutMakeTheOthersNoLargerByThemselves) {
  if (h264Encoders().empty()) GTEST_SKIP() << "no H.264 encoder is installed";
  for (const std::string& name : h264Encoders()) {
    SCOPED_TRACE(name);
    CapturePlan plan = planOf(640, 480);
    plan.bitRate = 6'000'000;
    Encoding encoding(makeH264Encoder(name, plan), Frames::OneInThree);
    const double part = plan.bitRate / 3;
    EXPECT_NEAR(encoding.bitsASecond(), part, part / 2);
    EXPECT_LE(encoding.framesASecond(), 11) << "each has its own stamp again";
  }
}

TEST_F(EncoderTest, AStreamThatBeginsAgainIsEncodedAgain) {
  if (h264Encoders().empty()) GTEST_SKIP() << "no H.264 encoder is installed";
  for (const std::string& name : h264Encoders()) {
    SCOPED_TRACE(name);
    CapturePlan plan = planOf(640, 480);
    plan.bitRate = 8'000'000;
    Encoding encoding(makeH264Encoder(name, plan));
    // Of thirty; some leave frames out.
    for (int i = 0; i < 3; ++i) EXPECT_GE(encoding.framesFromTheBeginning(), 10);
  }
}

TEST_F(EncoderTest, FramesThatAreLeftOutGiveTheirPartToTheOthers) {
  for (const std::string& name : h264Encoders()) {
    SCOPED_TRACE(name);
    CapturePlan plan = planOf(1280, 720);
    const GstPtr<GstElement> encoder(GST_ELEMENT(gst_object_ref_sink(makeH264Encoder(name, plan))));
    const GstPtr<GstElement> element(gst_bin_get_by_name(GST_BIN(encoder.get()), "h264"));
    ASSERT_TRUE(element);
    if (g_object_class_find_property(G_OBJECT_GET_CLASS(element.get()), "bitrate") == nullptr) {
      continue;  // a driver, which tells nothing
    }
    const auto bitRate = [&] {
      guint rate = 0;
      g_object_get(element.get(), "bitrate", &rate, nullptr);
      return rate;
    };
    const guint full = bitRate();
    plan.bitRate = policyBitRate(plan) / 4;
    plan.isThinned = true;
    setEncoderRate(encoder.get(), plan);
    EXPECT_NEAR(bitRate(), full / 4.0, full / 1000.0);
    plan.interval = 2 * plan.frameInterval();
    setEncoderRate(encoder.get(), plan);
    EXPECT_NEAR(bitRate(), full / 2.0, full / 1000.0)
        << "of half the frames, each may have twice as much";
    plan.bitRate = 0;
    plan.interval = 0;
    plan.isThinned = false;
    setEncoderRate(encoder.get(), plan);
    EXPECT_EQ(bitRate(), full);
  }
}

}  // namespace
}  // namespace lumsar::test
