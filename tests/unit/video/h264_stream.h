// H264Stream: what an H.264 camera sends, made by libavcodec's encoder: frames of one level of
// grey.
#pragma once

extern "C" {
#include <libavcodec/avcodec.h>
}

#include <memory>
#include <vector>

#include "support/messages.h"
#include "video/free_by_address.h"

namespace lumsar::test {

class H264Stream {
 public:
  static bool isThere() { return avcodec_find_encoder_by_name("libx264") != nullptr; }

  H264Stream(int width, int height);
  // The next access unit, whose brightness is `level`, from 16 to 235.
  Bytes next(int level, bool isKey = false);

 private:
  std::unique_ptr<AVCodecContext, video::FreeByAddress<avcodec_free_context>> m_encoder;
  std::unique_ptr<AVFrame, video::FreeByAddress<av_frame_free>> m_frame;
  std::unique_ptr<AVPacket, video::FreeByAddress<av_packet_free>> m_packet;
};

}  // namespace lumsar::test
