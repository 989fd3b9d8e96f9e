// Hardware: what decodes H.264 beside the processor, by VA-API. It is opened before the sandbox is
// entered, in which no file can be.
#pragma once

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/hwcontext.h>
}

#include <memory>

#include "decode/free_by_address.h"

namespace lumsar::agent {

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

}  // namespace lumsar::agent
