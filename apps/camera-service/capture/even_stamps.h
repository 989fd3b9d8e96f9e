// For encoders whose rate control goes by time stamps. After a gap they make a frame as large as
// all that could have been sent in it: where frames are left out because the line is full, each
// would make the next gap longer. When time goes back, as in a video file that begins again, they
// do so for seconds.
#pragma once

#include <gst/gst.h>

namespace lumsar::service {

// The encoder sees `rate` frames a second, one after the other; what leaves it has their own stamps
// again. It must not hold frames back.
void stampEvenly(GstElement* encoder, double rate);

}  // namespace lumsar::service
