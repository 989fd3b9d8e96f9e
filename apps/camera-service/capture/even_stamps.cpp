#include "capture/even_stamps.h"

#include <algorithm>
#include <cmath>

#include "formats/gst_ptr.h"

namespace lumsar::service {
namespace {

struct Stamps {
  GstClockTime distance;
  GstClockTime captured = GST_CLOCK_TIME_NONE;  // of the frame that is being encoded
  GstClockTime encoder = GST_CLOCK_TIME_NONE;
};

GstBuffer* writable(GstPadProbeInfo* info) {
  GstBuffer* const buffer = gst_buffer_make_writable(GST_PAD_PROBE_INFO_BUFFER(info));
  info->data = buffer;
  return buffer;
}

GstPadProbeReturn onCaptured(GstPad* /*pad*/, GstPadProbeInfo* info, gpointer data) {
  Stamps& stamps = *held<Stamps>(data);
  GstBuffer* const buffer = writable(info);
  stamps.captured = GST_BUFFER_PTS(buffer);
  const bool isFirst = stamps.encoder == GST_CLOCK_TIME_NONE;
  stamps.encoder = isFirst ? stamps.captured : stamps.encoder + stamps.distance;
  GST_BUFFER_PTS(buffer) = stamps.encoder;
  return GST_PAD_PROBE_OK;
}

// A segment may end where a video file does, before the encoder's time, and may begin after it.
GstPadProbeReturn onSegment(GstPad* /*pad*/, GstPadProbeInfo* info, gpointer data) {
  GstEvent* const event = GST_PAD_PROBE_INFO_EVENT(info);
  if (GST_EVENT_TYPE(event) != GST_EVENT_SEGMENT) return GST_PAD_PROBE_OK;
  GstSegment segment;
  gst_event_copy_segment(event, &segment);
  segment.stop = GST_CLOCK_TIME_NONE;
  GstEvent* const unbounded = gst_event_new_segment(&segment);
  gst_event_set_seqnum(unbounded, gst_event_get_seqnum(event));
  gst_event_unref(event);
  info->data = unbounded;
  GstClockTime& encoder = held<Stamps>(data)->encoder;
  encoder = std::max(encoder, segment.start);  // NONE is the largest
  return GST_PAD_PROBE_OK;
}

GstPadProbeReturn onEncoded(GstPad* /*pad*/, GstPadProbeInfo* info, gpointer data) {
  GstBuffer* const buffer = writable(info);
  GST_BUFFER_PTS(buffer) = GST_BUFFER_DTS(buffer) = held<Stamps>(data)->captured;
  return GST_PAD_PROBE_OK;
}

}  // namespace

void stampEvenly(GstElement* encoder, double rate) {
  if (rate <= 0) return;
  const auto stamps =
      std::make_shared<Stamps>(Stamps{static_cast<GstClockTime>(std::llround(GST_SECOND / rate))});
  addProbe(encoder, "sink", stamps, onSegment, GST_PAD_PROBE_TYPE_EVENT_DOWNSTREAM);
  addProbe(encoder, "sink", stamps, onCaptured);
  addProbe(encoder, "src", stamps, onEncoded);
}

}  // namespace lumsar::service
