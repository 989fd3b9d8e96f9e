// Hardware: what decodes H.264 in place of the processor, by VA-API.
#pragma once

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/hwcontext.h>
}

#include <memory>

#include "video/free_by_address.h"

namespace lumsar::video {

class Hardware {
 public:
  // The first device that there is, if any.
  static Hardware open();
  Hardware() = default;

  bool isThere() const { return m_device != nullptr; }
  // Before the decoder is opened.
  void offer(AVCodecContext& decoder) const;
  // Whether the frame has to be fetched from the device.
  static bool holds(const AVFrame& frame) { return frame.format == AV_PIX_FMT_VAAPI; }

 private:
  std::unique_ptr<AVBufferRef, FreeByAddress<av_buffer_unref>> m_device;
};

}  // namespace lumsar::video
