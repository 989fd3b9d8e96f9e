// For encoders that do not bound their key frames. Even at its coarsest, a key frame of noise, or
// of leaves in the wind, can take a thin line a second, in which all other frames wait.
#pragma once

#include <gst/gst.h>

namespace lumsar::service {

// After a key frame that takes twice `time` at the encoder's "bitrate", all frames are encoded
// coarser, by "qp-min", so that key frames take about `time`; later ones become finer again as
// there is room. Each change restarts the encoder, with a key frame. May be called again, for
// another time; thread-safe.
void limitKeyFrames(GstElement* encoder, GstClockTime time);

}  // namespace lumsar::service
