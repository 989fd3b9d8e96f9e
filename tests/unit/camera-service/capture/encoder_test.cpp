// Tests of encoder.h: what each H.264 encoder that is installed makes of its bit rate.
#include "capture/encoder.h"

#include <gst/app/gstappsink.h>
#include <gst/video/video.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string_view>
#include <tuple>

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
            gst_parse_launch("videotestsrc name=source pattern=snow ! "
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
  void show(const char* pattern) {
    const GstPtr<GstElement> source(gst_bin_get_by_name(GST_BIN(m_pipeline.get()), "source"));
    gst_util_set_object_arg(G_OBJECT(source.get()), "pattern", pattern);
  }
  // Bytes of the largest key frame, asked for once a second.
  std::size_t largestKeyFrame(int seconds) {
    std::size_t largest = 0;
    for (int i = 0; i < seconds; ++i) {
      const GstPtr<GstPad> pad(gst_element_get_static_pad(m_encoder.get(), "src"));
      gst_pad_send_event(pad.get(),
                         gst_video_event_new_upstream_force_key_unit(GST_CLOCK_TIME_NONE, TRUE, 0));
      largest = std::max(largest, largestKeyFrameUntil(m_time + 1));
    }
    return largest;
  }

 private:
  static void leaveOut(GstElement* before) {
    addProbe(before, "src", std::make_shared<int>(0), [](GstPad*, GstPadProbeInfo*, gpointer data) {
      return (*held<int>(data))++ % 3 == 0 ? GST_PAD_PROBE_OK : GST_PAD_PROBE_DROP;
    });
  }
  GstPtr<GstSample> next() {
    GstPtr<GstSample> sample(gst_app_sink_try_pull_sample(GST_APP_SINK(m_sink.get()), kTimeout));
    if (!sample) throw std::runtime_error("the encoder has ended or hangs");
    ++m_frames;
    const GstClockTime stamp = GST_BUFFER_PTS(gst_sample_get_buffer(sample.get()));
    m_time = static_cast<double>(stamp) / static_cast<double>(GST_SECOND);
    return sample;
  }
  // An encoder may leave frames out.
  double bytesUntil(double time) {
    double bytes = 0;
    while (m_time < time) {
      bytes += static_cast<double>(gst_buffer_get_size(gst_sample_get_buffer(next().get())));
    }
    return bytes;
  }
  std::size_t largestKeyFrameUntil(double time) {
    std::size_t largest = 0;
    while (m_time < time) {
      const GstPtr<GstSample> sample = next();
      GstBuffer* const frame = gst_sample_get_buffer(sample.get());
      if (GST_BUFFER_FLAG_IS_SET(frame, GST_BUFFER_FLAG_DELTA_UNIT)) continue;
      largest = std::max(largest, gst_buffer_get_size(frame));
    }
    return largest;
  }

  double m_time = 0;
  int m_frames = 0;
  const GstPtr<GstElement> m_encoder;
  const GstPtr<GstElement> m_pipeline;
  GstPtr<GstElement> m_sink;
};

// An element with the name and the settings of a device's, which passes on what it gets, or fails
// as where there is a driver and no device.
class DeviceEncoder {
 public:
  explicit DeviceEncoder(bool works) {
    hasDevice = works;
    gst_element_register(nullptr, "vah264enc", GST_RANK_NONE, type());
  }
  ~DeviceEncoder() {
    GstRegistry* const registry = gst_registry_get();
    GstPluginFeature* const feature = gst_registry_lookup_feature(registry, "vah264enc");
    gst_registry_remove_feature(registry, feature);
    gst_object_unref(feature);
  }
  DeviceEncoder(const DeviceEncoder&) = delete;
  DeviceEncoder& operator=(const DeviceEncoder&) = delete;

 private:
  static GType type() {
    static const GType registered = [] {
      GTypeInfo info = {};
      info.class_size = sizeof(GstElementClass);
      info.class_init = setUpClass;
      info.instance_size = sizeof(GstElement);
      info.instance_init = setUp;
      return g_type_register_static(GST_TYPE_ELEMENT, "LumsarDeviceEncoder", &info, GTypeFlags{});
    }();
    return registered;
  }
  static void setUpClass(gpointer type, gpointer /*data*/) {
    auto* const object = static_cast<GObjectClass*>(type);
    object->set_property = [](GObject*, guint, const GValue*, GParamSpec*) {};
    object->get_property = [](GObject*, guint, GValue*, GParamSpec*) {};
    guint id = 0;
    for (const char* name : {"b-frames", "key-int-max", "bitrate"}) {
      g_object_class_install_property(
          object, ++id,
          g_param_spec_uint(name, nullptr, nullptr, 0, G_MAXUINT, 0, G_PARAM_READWRITE));
    }
    g_object_class_install_property(
        object, ++id,
        g_param_spec_string("rate-control", nullptr, nullptr, nullptr, G_PARAM_READWRITE));
    auto* const element = static_cast<GstElementClass*>(type);
    gst_element_class_set_static_metadata(element, "encoder", "Encoder", "of a device", "Lumsar");
    for (const auto& [name, direction, caps] :
         {std::tuple{"sink", GST_PAD_SINK, "video/x-raw"},
          std::tuple{"src", GST_PAD_SRC,
                     "video/x-h264,stream-format=(string)byte-stream,alignment=(string)au"}}) {
      const GstPtr<GstCaps> format(gst_caps_from_string(caps));
      gst_element_class_add_pad_template(
          element, gst_pad_template_new(name, direction, GST_PAD_ALWAYS, format.get()));
    }
  }
  static void setUp(GTypeInstance* instance, gpointer type) {
    auto* const element = reinterpret_cast<GstElement*>(instance);
    const auto add = [&](const char* name) {
      GstPad* const pad = gst_pad_new_from_template(
          gst_element_class_get_pad_template(static_cast<GstElementClass*>(type), name), name);
      gst_element_add_pad(element, pad);
      return pad;
    };
    add("src");
    GstPad* const sink = add("sink");
    gst_pad_set_event_function(sink, onEvent);
    gst_pad_set_chain_function(sink, onFrame);
  }
  static gboolean onEvent(GstPad* pad, GstObject* parent, GstEvent* event) {
    if (GST_EVENT_TYPE(event) != GST_EVENT_CAPS) return gst_pad_event_default(pad, parent, event);
    gst_event_unref(event);
    const GstPtr<GstPad> source(gst_element_get_static_pad(GST_ELEMENT(parent), "src"));
    const GstPtr<GstCaps> caps(gst_pad_get_pad_template_caps(source.get()));
    return gst_pad_push_event(source.get(), gst_event_new_caps(caps.get()));
  }
  static GstFlowReturn onFrame(GstPad* /*pad*/, GstObject* parent, GstBuffer* frame) {
    const GstPtr<GstPad> source(gst_element_get_static_pad(GST_ELEMENT(parent), "src"));
    if (hasDevice) return gst_pad_push(source.get(), frame);
    gst_buffer_unref(frame);
    return GST_FLOW_ERROR;
  }

  static inline bool hasDevice = false;
};

class EncoderTest : public testing::Test {
 protected:
  static void SetUpTestSuite() { gst_init(nullptr, nullptr); }
};

TEST_F(EncoderTest, DevicesAreTakenFirst) {
  const std::vector<std::string> order = {"vah264enc", "vaapih264enc", "v4l2h264enc", "openh264enc",
                                          "x264enc"};
  const auto encoders = h264Encoders();
  if (encoders.empty()) GTEST_SKIP() << "no H.264 encoder is installed";
  EXPECT_TRUE(std::ranges::is_sorted(
      encoders, {}, [&](const std::string& name) { return std::ranges::find(order, name); }));
  const GstPtr<GstElement> bin(GST_ELEMENT(gst_object_ref_sink(makeEncoder(planOf(640, 480)))));
  const GstPtr<GstElement> taken(gst_bin_get_by_name(GST_BIN(bin.get()), "h264"));
  EXPECT_EQ(GST_OBJECT_NAME(gst_element_get_factory(taken.get())), encoders.front());
}

TEST_F(EncoderTest, ADevicesEncoderIsTakenIfItEncodes) {
  const auto others = h264Encoders();
  {
    const DeviceEncoder device(true);
    const auto encoders = h264Encoders();
    ASSERT_EQ(encoders.size(), others.size() + 1);
    EXPECT_EQ(encoders.front(), "vah264enc");
  }
  const DeviceEncoder device(false);
  EXPECT_EQ(h264Encoders(), others);
}

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

// Else each would fill the line, and all frames wait behind it.
TEST_F(EncoderTest, KeyFramesOfNoiseAreBounded) {
  if (h264Encoders().empty()) GTEST_SKIP() << "no H.264 encoder is installed";
  for (const std::string& name : h264Encoders()) {
    for (const Frames frames : {Frames::All, Frames::OneInThree}) {
      SCOPED_TRACE(name + (frames == Frames::All ? "" : ", of one frame in three"));
      CapturePlan plan = planOf(640, 480);
      plan.bitRate = 1'000'000;
      plan.isThinned = true;
      if (frames == Frames::OneInThree) plan.interval = 3 * plan.frameInterval();
      Encoding encoding(makeH264Encoder(name, plan), frames);
      encoding.largestKeyFrame(3);
      const auto second = static_cast<std::size_t>(plan.bitRate / 8);
      const std::size_t largest = encoding.largestKeyFrame(5);
      EXPECT_GT(largest, 0U);
      EXPECT_LT(largest, second * 11 / 20);
    }
  }
}

TEST_F(EncoderTest, KeyFramesAreFineAgainWhenThereIsRoom) {
  if (h264Encoders().empty()) GTEST_SKIP() << "no H.264 encoder is installed";
  for (const std::string& name : h264Encoders()) {
    SCOPED_TRACE(name);
    CapturePlan plan = planOf(640, 480);
    plan.bitRate = 1'000'000;
    plan.isThinned = true;
    Encoding encoding(makeH264Encoder(name, plan));
    encoding.largestKeyFrame(3);
    encoding.show("smpte");
    encoding.largestKeyFrame(20);
    const std::size_t after = encoding.largestKeyFrame(5);
    Encoding other(makeH264Encoder(name, plan));
    other.show("smpte");
    other.largestKeyFrame(20);
    EXPECT_GT(after, other.largestKeyFrame(5) / 2);
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
    plan.isThinned = false;
    setEncoderRate(encoder.get(), plan);
    EXPECT_NEAR(bitRate(), full, full / 1000.0) << "and where the policy has fewer frames";
    plan.interval = 0;
    setEncoderRate(encoder.get(), plan);
    EXPECT_EQ(bitRate(), full);
  }
}

}  // namespace
}  // namespace lumsar::test
