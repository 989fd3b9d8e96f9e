#include "capture/key_frame_limit.h"

#include <algorithm>
#include <atomic>
#include <cmath>

#include "formats/gst_ptr.h"

namespace lumsar::service {
namespace {

constexpr const char* kLimit = "lumsar-key-frame-limit";

// Of libopenh264's quantiser.
constexpr int kLowest = 12;  // lower values are raised to it, and "qp-max" is lowered then
constexpr int kCoarsestByItself = 37;  // of key frames, as long as "qp-min" is lower
constexpr int kHighest = 51;
constexpr int kStepsPerHalving = 6;  // twice the step size, about half the bytes
constexpr int kFramesBeforeFiner = 60;

struct Limit {
  GstElement* encoder = nullptr;  // whose pads own this
  std::atomic<GstClockTime> time = 0;
  // Of the thread on which it encodes.
  int minimum = kLowest;
  int next = kLowest;
  int frames = 0;  // since the minimum was set
};

// How far the key frame is above its limit, in steps of the quantiser; negative below.
int stepsAbove(const Limit& limit, std::size_t bytes) {
  guint bitRate = 0;
  g_object_get(limit.encoder, "bitrate", &bitRate, nullptr);
  const double room = bitRate / 8.0 * static_cast<double>(limit.time.load()) / GST_SECOND;
  if (room <= 0) return 0;
  return static_cast<int>(
      std::ceil(kStepsPerHalving * std::log2(static_cast<double>(bytes) / room)));
}

GstPadProbeReturn onEncoded(GstPad* /*pad*/, GstPadProbeInfo* info, gpointer data) {
  Limit& limit = *held<Limit>(data);
  GstBuffer* const frame = GST_PAD_PROBE_INFO_BUFFER(info);
  ++limit.frames;
  if (GST_BUFFER_FLAG_IS_SET(frame, GST_BUFFER_FLAG_DELTA_UNIT)) return GST_PAD_PROBE_OK;
  const int steps = stepsAbove(limit, gst_buffer_get_size(frame));
  if (steps >= kStepsPerHalving) {
    limit.next = std::min(kHighest, std::max(limit.minimum, kCoarsestByItself) + steps);
  } else if (steps < 0 && limit.frames > kFramesBeforeFiner) {
    const int finer = limit.minimum + steps / 4;  // of noise, bytes grow several times as fast
    limit.next = finer > kCoarsestByItself ? finer : kLowest;
  }
  return GST_PAD_PROBE_OK;
}

// The encoder reads "qp-min" only when it starts, which it does for each new format. This one
// describes the same frames.
GstPtr<GstCaps> equivalentCaps(GstPad* pad) {
  constexpr const char* kViews = "multiview-mode";
  const GstPtr<GstCaps> now(gst_pad_get_current_caps(pad));
  GstPtr<GstCaps> other(gst_caps_copy(now.get()));
  GstStructure* const format = gst_caps_get_structure(other.get(), 0);
  if (gst_structure_has_field(format, kViews) != FALSE) {
    gst_structure_remove_field(format, kViews);
  } else {
    gst_structure_set(format, kViews, G_TYPE_STRING, "mono", nullptr);
  }
  return other;
}

GstPadProbeReturn onCaptured(GstPad* pad, GstPadProbeInfo* /*info*/, gpointer data) {
  Limit& limit = *held<Limit>(data);
  if (limit.next == limit.minimum) return GST_PAD_PROBE_OK;
  g_object_set(limit.encoder, "qp-min", limit.next, nullptr);
  if (gst_pad_send_event(pad, gst_event_new_caps(equivalentCaps(pad).get())) == FALSE) {
    return GST_PAD_PROBE_OK;  // tried again with the next frame
  }
  limit.minimum = limit.next;
  limit.frames = 0;
  return GST_PAD_PROBE_OK;
}

}  // namespace

void limitKeyFrames(GstElement* encoder, GstClockTime time) {
  if (gpointer known = g_object_get_data(G_OBJECT(encoder), kLimit); known != nullptr) {
    held<Limit>(known)->time = time;
    return;
  }
  const auto limit = std::make_shared<Limit>();
  limit->encoder = encoder;
  limit->time = time;
  g_object_set_data_full(G_OBJECT(encoder), kLimit, holdShared(limit), releaseShared<Limit>);
  g_object_set(encoder, "qp-min", limit->minimum, nullptr);
  addProbe(encoder, "sink", limit, onCaptured);
  addProbe(encoder, "src", limit, onEncoded);
}

}  // namespace lumsar::service
