#include "capture/frame_tap.h"

#include <gst/app/gstappsink.h>

#include <utility>

namespace lumsar::service {
namespace {

// The sink starts, and starts again after a video file's end, with the first frame that reaches it.
bool awaitsItsFirstFrame(GstElement* sink) {
  return gst_element_get_state(sink, nullptr, nullptr, 0) == GST_STATE_CHANGE_ASYNC;
}

// Whether its memory was allocated for this frame alone.
bool isOurs(GstBuffer* buffer) {
  return buffer->pool == nullptr && gst_buffer_get_parent_buffer_meta(buffer) == nullptr &&
         gst_memory_is_type(gst_buffer_peek_memory(buffer, 0), GST_ALLOCATOR_SYSMEM) != FALSE;
}

// The buffer's first `size` bytes, in memory that may be held for as long as a VM is slow. A driver
// has few buffers and stops without them: what comes from its pool is copied, all else is shared.
GstPtr<GstBuffer> heldBuffer(GstBuffer* buffer, std::size_t size) {
  const bool shared = isOurs(buffer);
  if (shared && size == gst_buffer_get_size(buffer)) {
    return GstPtr<GstBuffer>(gst_buffer_ref(buffer));
  }
  const int what = GST_BUFFER_COPY_ALL | (shared ? 0 : GST_BUFFER_COPY_DEEP);
  return GstPtr<GstBuffer>(
      gst_buffer_copy_region(buffer, static_cast<GstBufferCopyFlags>(what), 0, size));
}

// What is held of the buffer, with what the pad knows of it.
GstPtr<GstSample> sampleOf(GstPad* pad, GstBuffer* buffer, std::size_t size) {
  const GstPtr<GstCaps> caps(gst_pad_get_current_caps(pad));
  const GstPtr<GstEvent> event(gst_pad_get_sticky_event(pad, GST_EVENT_SEGMENT, 0));
  const GstSegment* segment = nullptr;
  if (event) gst_event_parse_segment(event.get(), &segment);
  const GstPtr<GstBuffer> held = heldBuffer(buffer, size);
  return GstPtr<GstSample>(gst_sample_new(held.get(), caps.get(), segment, nullptr));
}

}  // namespace

FrameTap::FrameTap(const CapturePlan& plan, Events events)
    : m_events(std::move(events)), m_plan(plan) {}

void FrameTap::attach(const CapturePipeline& pipeline) {
  m_sink = pipeline.sink;
  const auto self = shared_from_this();
  addProbe(pipeline.format, "src", self, [](GstPad* pad, GstPadProbeInfo* info, gpointer data) {
    return held<FrameTap>(data)->onCaptured(pad, GST_PAD_PROBE_INFO_BUFFER(info));
  });
  addProbe(pipeline.encoder, "sink", self, [](GstPad*, GstPadProbeInfo*, gpointer data) {
    held<FrameTap>(data)->m_encodeBegin = g_get_monotonic_time();
    return GST_PAD_PROBE_OK;
  });
  addProbe(pipeline.encoder, "src", self, [](GstPad*, GstPadProbeInfo*, gpointer data) {
    held<FrameTap>(data)->onEncodeEnd();
    return GST_PAD_PROBE_OK;
  });
  GstAppSinkCallbacks callbacks = {};
  callbacks.new_sample = [](GstAppSink*, gpointer data) -> GstFlowReturn {
    held<FrameTap>(data)->onEncoded();
    return GST_FLOW_OK;
  };
  gst_app_sink_set_callbacks(GST_APP_SINK(m_sink), &callbacks, holdShared(self),
                             releaseShared<FrameTap>);
}

GstPadProbeReturn FrameTap::onCaptured(GstPad* pad, GstBuffer* buffer) {
  if (!isDue()) return GST_PAD_PROBE_DROP;
  const Treatment treatment = judge(buffer);
  m_discard = false;
  if (!treatment.passes()) return GST_PAD_PROBE_OK;
  push(sampleOf(pad, buffer, treatment.frame.size));
  m_discard = awaitsItsFirstFrame(m_sink);
  return m_discard ? GST_PAD_PROBE_OK : GST_PAD_PROBE_DROP;
}

bool FrameTap::isDue() {
  const std::int64_t now = g_get_monotonic_time();
  if (isHeldBack(now)) return false;
  const std::lock_guard lock(m_mutex);
  if (!m_pacer.due(now, m_plan.interval)) return false;
  m_lastLet = now;
  return true;
}

bool FrameTap::isHeldBack(std::int64_t now) {
  return m_held && now - m_lastLet < kHeldInterval;
}

Treatment FrameTap::judge(GstBuffer* buffer) {
  GstMapInfo map;
  if (gst_buffer_map(buffer, &map, GST_MAP_READ) == FALSE) return {};
  std::unique_lock lock(m_mutex);
  const Treatment treatment = m_treatment = treatmentOf({map.data, map.size}, m_plan);
  lock.unlock();
  gst_buffer_unmap(buffer, &map);
  if (treatment.isDamaged() && m_damaged++ == 0) m_events.onFirstDamaged(treatment.frame.fault);
  return treatment;
}

void FrameTap::onEncodeEnd() {
  if (m_discard) return;
  m_encodeTotal += g_get_monotonic_time() - m_encodeBegin;
  ++m_encodeCount;
}

void FrameTap::onEncoded() {
  GstPtr<GstSample> sample(gst_app_sink_try_pull_sample(GST_APP_SINK(m_sink), 0));
  if (sample && !m_discard) push(std::move(sample));
}

void FrameTap::push(GstPtr<GstSample> sample) {
  std::unique_lock lock(m_mutex);
  auto& [older, newer] = m_frames;
  const bool first = !older;
  if (newer) older = std::move(newer);
  (first ? older : newer) = std::move(sample);
  lock.unlock();
  if (first) m_events.onFrames();
}

void FrameTap::setPlan(const CapturePlan& plan) {
  const std::lock_guard lock(m_mutex);
  m_plan = plan;
}

FrameTap::Newest FrameTap::take() {
  const std::lock_guard lock(m_mutex);
  return std::exchange(m_frames, {});
}

std::string FrameTap::treatment() const {
  const std::lock_guard lock(m_mutex);
  return describe(m_treatment, m_plan);
}

std::int64_t FrameTap::encodeTime() const {
  const std::int64_t count = m_encodeCount;
  return count == 0 ? 0 : m_encodeTotal / count;
}

}  // namespace lumsar::service
