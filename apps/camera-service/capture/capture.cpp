// Callbacks marked as running on a streaming thread touch nothing but the Tap.
#include "capture/capture.h"

#include <gst/app/gstappsink.h>
#include <gst/video/video.h>

#include <asio/post.hpp>
#include <atomic>
#include <cmath>
#include <stdexcept>

#include "base/log.h"
#include "capture/encoder.h"
#include "capture/pacer.h"
#include "lumsar/camera_data.h"

namespace lumsar::service {

// What the pipeline's threads share with the main loop. It outlives the capture for as long as they
// hold it.
struct Capture::Tap {
  explicit Tap(asio::io_context& context) : io(context) {}

  asio::io_context& io;
  std::weak_ptr<Capture> capture;
  std::atomic<bool> drainPosted = false;
  std::atomic<std::int64_t> interval = 0;
  Pacer pacer;  // streaming thread
  std::atomic<std::int64_t> encodeBegin = 0;
  std::atomic<std::int64_t> encodeTotal = 0;
  std::atomic<std::int64_t> encodeCount = 0;

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
  capture->m_tap->capture = capture;
  capture->attach();
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
      m_tap(std::make_shared<Tap>(io)),
      m_lastFrame(io) {}

Capture::~Capture() {
  asio::post(m_cameraTurns, [pipeline = m_pipeline.bin] {
    gst_element_set_state(pipeline.get(), GST_STATE_NULL);
  });
}

void Capture::attach() {
  m_tap->interval = m_plan.interval;
  const auto onCaptured = [](GstPad*, GstPadProbeInfo*, gpointer data) -> GstPadProbeReturn {
    Tap& tap = *held<Tap>(data);  // streaming thread
    return tap.pacer.due(g_get_monotonic_time(), tap.interval) ? GST_PAD_PROBE_OK
                                                               : GST_PAD_PROBE_DROP;
  };
  const auto onEncodeBegin = [](GstPad*, GstPadProbeInfo*, gpointer data) -> GstPadProbeReturn {
    held<Tap>(data)->encodeBegin = g_get_monotonic_time();  // streaming thread
    return GST_PAD_PROBE_OK;
  };
  const auto onEncodeEnd = [](GstPad*, GstPadProbeInfo*, gpointer data) -> GstPadProbeReturn {
    Tap& tap = *held<Tap>(data);  // streaming thread
    tap.encodeTotal += g_get_monotonic_time() - tap.encodeBegin;
    ++tap.encodeCount;
    return GST_PAD_PROBE_OK;
  };
  const auto probe = [this](GstElement* element, const char* name, GstPadProbeCallback callback) {
    const GstPtr<GstPad> pad(gst_element_get_static_pad(element, name));
    gst_pad_add_probe(pad.get(), GST_PAD_PROBE_TYPE_BUFFER, callback, holdShared(m_tap),
                      releaseShared<Tap>);
  };
  probe(m_pipeline.format, "src", onCaptured);
  probe(m_pipeline.encoder, "sink", onEncodeBegin);
  probe(m_pipeline.encoder, "src", onEncodeEnd);

  GstAppSinkCallbacks callbacks = {};
  callbacks.new_sample = [](GstAppSink*, gpointer data) -> GstFlowReturn {
    Tap& tap = *held<Tap>(data);  // streaming thread
    if (!tap.drainPosted.exchange(true)) tap.post([](Capture& capture) { capture.drain(); });
    return GST_FLOW_OK;
  };
  gst_app_sink_set_callbacks(GST_APP_SINK(m_pipeline.sink), &callbacks, holdShared(m_tap),
                             releaseShared<Tap>);
}

void Capture::watchBus() {
  const GstPtr<GstBus> bus(gst_element_get_bus(m_pipeline.bin.get()));
  const auto onMessage = [](GstBus*, GstMessage* message, gpointer data) -> GstBusSyncReply {
    Tap& tap = *held<Tap>(data);  // any thread
    if (GST_MESSAGE_TYPE(message) == GST_MESSAGE_EOS) {
      tap.post([](Capture& capture) { capture.onEndOfStream(); });
    } else if (GST_MESSAGE_TYPE(message) == GST_MESSAGE_ERROR) {
      GError* error = nullptr;
      gst_message_parse_error(message, &error, nullptr);
      const GstPtr<GError> owned(error);
      tap.post([why = std::string(error->message)](Capture& capture) {
        capture.m_events.onCaptureFailed(why);
      });
    }
    gst_message_unref(message);
    return GST_BUS_DROP;
  };
  gst_bus_set_sync_handler(bus.get(), onMessage, holdShared(m_tap), releaseShared<Tap>);
}

void Capture::play() {
  asio::post(m_cameraTurns, [pipeline = m_pipeline.bin, tap = m_tap] {
    if (tap->capture.expired()) return;  // ended before its turn came
    if (gst_element_set_state(pipeline.get(), GST_STATE_PLAYING) != GST_STATE_CHANGE_FAILURE) {
      return;
    }
    tap->post([](Capture& capture) { capture.m_events.onCaptureFailed("it did not start"); });
  });
}

bool Capture::adapt(const CapturePlan& plan) {
  if (plan.source != m_plan.source || plan.encoding != m_plan.encoding) return false;
  if (plan.quality != m_plan.quality && !setEncoderQuality(m_pipeline.encoder, plan)) return false;
  if (plan.width != m_plan.width || plan.height != m_plan.height) {
    setFrameSize(m_pipeline, plan);
  }
  m_tap->interval = plan.interval;
  m_plan = plan;
  return true;
}

void Capture::requestKeyFrame() {
  if (m_plan.encoding != kEncodingH264) return;
  GstEvent* event = gst_video_event_new_upstream_force_key_unit(GST_CLOCK_TIME_NONE, TRUE, 0);
  gst_element_send_event(m_pipeline.sink, event);
}

std::int64_t Capture::encodeTime() const {
  const std::int64_t count = m_tap->encodeCount;
  return count == 0 ? 0 : m_tap->encodeTotal / count;
}

void Capture::drain() {
  m_tap->drainPosted = false;
  while (GstSample* sample = gst_app_sink_try_pull_sample(GST_APP_SINK(m_pipeline.sink), 0)) {
    const GstPtr<GstSample> owned(sample);
    deliver(sample);
  }
}

void Capture::deliver(GstSample* sample) {
  GstBuffer* buffer = gst_sample_get_buffer(sample);
  const GstStructure* caps = gst_caps_get_structure(gst_sample_get_caps(sample), 0);
  GstMapInfo map;
  if (gst_buffer_map(buffer, &map, GST_MAP_READ) == FALSE) return;
  CapturedFrame frame;
  frame.data = {map.data, map.size};
  gst_structure_get_int(caps, "width", &frame.width);
  gst_structure_get_int(caps, "height", &frame.height);
  frame.encoding = m_plan.encoding;
  frame.key = frame.encoding == kEncodingMjpg ||
              !GST_BUFFER_FLAG_IS_SET(buffer, GST_BUFFER_FLAG_DELTA_UNIT);
  frame.time = captureTime(sample);
  m_events.onFrame(frame);
  gst_buffer_unmap(buffer, &map);
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
  m_lastFrame.async_wait([this](asio::error_code stopped) {
    if (!stopped) rewind();
  });
}

void Capture::rewind() {
  asio::post(m_cameraTurns, [pipeline = m_pipeline.bin, tap = m_tap] {
    constexpr auto kFlags = static_cast<GstSeekFlags>(GST_SEEK_FLAG_FLUSH | GST_SEEK_FLAG_KEY_UNIT);
    if (gst_element_seek_simple(pipeline.get(), GST_FORMAT_TIME, kFlags, 0) != FALSE) return;
    tap->post([](Capture& capture) { capture.m_events.onCaptureFailed("its stream ended"); });
  });
}

}  // namespace lumsar::service
