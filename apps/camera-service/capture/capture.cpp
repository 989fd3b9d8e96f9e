#include "capture/capture.h"

#include <gst/video/video.h>

#include <asio/post.hpp>
#include <cmath>
#include <stdexcept>

#include "base/log.h"
#include "capture/encoder.h"
#include "lumsar/camera_data.h"

namespace lumsar::service {
namespace {

// A sample whose bytes can be read while it lives.
class MappedSample {
 public:
  explicit MappedSample(GstPtr<GstSample> sample) : m_sample(std::move(sample)) {
    m_mapped = gst_buffer_map(buffer(), &m_map, GST_MAP_READ) != FALSE;
  }
  ~MappedSample() {
    if (m_mapped) gst_buffer_unmap(buffer(), &m_map);
  }
  MappedSample(const MappedSample&) = delete;
  MappedSample& operator=(const MappedSample&) = delete;

  base::Bytes bytes() const {
    return m_mapped ? base::Bytes{m_map.data, m_map.size} : base::Bytes{};
  }

 private:
  GstBuffer* buffer() const { return gst_sample_get_buffer(m_sample.get()); }

  GstPtr<GstSample> m_sample;
  GstMapInfo m_map{};
  bool m_mapped = false;
};

}  // namespace

// The way of the pipeline's threads back to the main loop. It outlives the capture for as long as
// they hold it.
struct Capture::MainLoop {
  explicit MainLoop(asio::io_context& context) : io(context) {}

  asio::io_context& io;
  std::weak_ptr<Capture> capture;

  template <class Call>
  void post(Call call) {
    try {
      asio::post(io, [weak = capture, call = std::move(call)] {
        if (const auto alive = weak.lock()) call(*alive);
      });
    } catch (const std::exception& error) {  // not into GStreamer, which called
      base::logWarning("a notification of a running camera was lost: {}", error.what());
    }
  }
};

std::shared_ptr<Capture> Capture::start(asio::io_context& io, const CameraTurns& cameraTurns,
                                        GstDevice* device, const CapturePlan& plan,
                                        CaptureEvents& events) {
  auto capture = std::make_shared<Capture>(Key{}, io, cameraTurns, device, plan, events);
  capture->m_mainLoop->capture = capture;
  capture->m_frames->attach(capture->m_pipeline);
  capture->watchBus();
  capture->play();
  return capture;
}

Capture::Capture(Key /*key*/, asio::io_context& io, const CameraTurns& cameraTurns,
                 GstDevice* device, const CapturePlan& plan, CaptureEvents& events)
    : m_cameraTurns(cameraTurns),
      m_plan(plan),
      m_events(events),
      m_pipeline(buildPipeline(device, plan)),
      m_mainLoop(std::make_shared<MainLoop>(io)),
      m_frames(std::make_shared<FrameTap>(plan, tapEvents())),
      m_lastFrame(io) {}

Capture::~Capture() {
  asio::post(m_cameraTurns, [pipeline = m_pipeline.bin] {
    gst_element_set_state(pipeline.get(), GST_STATE_NULL);
  });
}

FrameTap::Events Capture::tapEvents() {
  const auto& loop = m_mainLoop;
  return {[loop] { loop->post([](Capture& capture) { capture.drain(); }); },
          [loop](const char* why) {
            loop->post([why](Capture& capture) { capture.m_events.onDamagedFrame(why); });
          }};
}

void Capture::watchBus() {
  const GstPtr<GstBus> bus(gst_element_get_bus(m_pipeline.bin.get()));
  const auto onMessage = [](GstBus*, GstMessage* message, gpointer data) -> GstBusSyncReply {
    MainLoop& mainLoop = *held<MainLoop>(data);  // any thread
    if (GST_MESSAGE_TYPE(message) == GST_MESSAGE_EOS) {
      mainLoop.post([](Capture& capture) { capture.onEndOfStream(); });
    } else if (GST_MESSAGE_TYPE(message) == GST_MESSAGE_ERROR) {
      GError* error = nullptr;
      gst_message_parse_error(message, &error, nullptr);
      const GstPtr<GError> owned(error);
      mainLoop.post([why = std::string(error->message)](Capture& capture) {
        capture.m_events.onCaptureFailed(why);
      });
    }
    gst_message_unref(message);
    return GST_BUS_DROP;
  };
  gst_bus_set_sync_handler(bus.get(), onMessage, holdShared(m_mainLoop), releaseShared<MainLoop>);
}

void Capture::play() {
  asio::post(m_cameraTurns, [pipeline = m_pipeline.bin, mainLoop = m_mainLoop] {
    if (mainLoop->capture.expired()) return;  // ended before its turn came
    if (gst_element_set_state(pipeline.get(), GST_STATE_PLAYING) != GST_STATE_CHANGE_FAILURE) {
      return;
    }
    mainLoop->post([](Capture& capture) { capture.m_events.onCaptureFailed("it did not start"); });
  });
}

bool Capture::adapt(const CapturePlan& plan) {
  if (plan == m_plan) return true;
  if (plan.source != m_plan.source || plan.encoding != m_plan.encoding) return false;
  if (plan.quality != m_plan.quality && !setEncoderQuality(m_pipeline.encoder, plan)) return false;
  if (plan.width != m_plan.width || plan.height != m_plan.height) {
    setFrameSize(m_pipeline, plan);
  }
  setEncoderRate(m_pipeline.encoder, plan);
  m_frames->setPlan(plan);
  m_plan = plan;
  return true;
}

void Capture::requestKeyFrame() {
  if (m_plan.encoding != kEncodingH264) return;
  GstEvent* event = gst_video_event_new_upstream_force_key_unit(GST_CLOCK_TIME_NONE, TRUE, 0);
  gst_element_send_event(m_pipeline.sink, event);
}

void Capture::drain() {
  for (auto& sample : m_frames->take()) {
    if (sample) deliver(std::move(sample));
  }
}

void Capture::deliver(GstPtr<GstSample> sample) {
  GstBuffer* buffer = gst_sample_get_buffer(sample.get());
  const GstStructure* caps = gst_caps_get_structure(gst_sample_get_caps(sample.get()), 0);
  CapturedFrame frame;
  gst_structure_get_int(caps, "width", &frame.width);
  gst_structure_get_int(caps, "height", &frame.height);
  frame.encoding = m_plan.encoding;
  frame.key = frame.encoding == kEncodingMjpg ||
              !GST_BUFFER_FLAG_IS_SET(buffer, GST_BUFFER_FLAG_DELTA_UNIT);
  frame.time = captureTime(sample.get());
  const auto mapped = std::make_shared<MappedSample>(std::move(sample));
  if (mapped->bytes().empty()) return;
  frame.data = {mapped->bytes(), mapped};
  m_events.onFrame(frame);
}

// A frame's time stamp counts from the pipeline's start; its age leads to the time of day.
std::uint64_t Capture::captureTime(GstSample* sample) const {
  const std::uint64_t now = cameraClock();
  const GstPtr<GstClock> clock(gst_pipeline_get_clock(GST_PIPELINE(m_pipeline.bin.get())));
  const GstClockTime stamp = GST_BUFFER_PTS(gst_sample_get_buffer(sample));
  if (!clock || !GST_CLOCK_TIME_IS_VALID(stamp)) return now;
  const GstClockTime begin =
      gst_segment_to_running_time(gst_sample_get_segment(sample), GST_FORMAT_TIME, stamp);
  const GstClockTime running =
      gst_clock_get_time(clock.get()) - gst_element_get_base_time(m_pipeline.bin.get());
  if (!GST_CLOCK_TIME_IS_VALID(begin) || begin > running) return now;
  const GstClockTime age = running - begin;
  constexpr GstClockTime kOldest = 10 * GST_SECOND;  // beyond this the stamps are not to be trusted
  return age > kOldest ? now : now - age / GST_USECOND;
}

// A video file begins again once its last frame has lasted as long as the others; a camera has no
// end.
void Capture::onEndOfStream() {
  const double rate = m_plan.source.rate();
  m_lastFrame.expires_after(std::chrono::milliseconds(rate > 0 ? std::lround(1000 / rate) : 0));
  // A timer whose turn has come is not cancelled.
  m_lastFrame.async_wait([weak = m_mainLoop->capture](asio::error_code stopped) {
    const auto capture = weak.lock();
    if (!stopped && capture) capture->rewind();
  });
}

void Capture::rewind() {
  asio::post(m_cameraTurns, [pipeline = m_pipeline.bin, mainLoop = m_mainLoop] {
    constexpr auto kFlags = static_cast<GstSeekFlags>(GST_SEEK_FLAG_FLUSH | GST_SEEK_FLAG_KEY_UNIT);
    if (gst_element_seek_simple(pipeline.get(), GST_FORMAT_TIME, kFlags, 0) != FALSE) return;
    mainLoop->post([](Capture& capture) { capture.m_events.onCaptureFailed("its stream ended"); });
  });
}

}  // namespace lumsar::service
