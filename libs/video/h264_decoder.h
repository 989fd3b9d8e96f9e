// H264Decoder: the frames of one H.264 stream, by libavcodec. Not thread-safe.
#pragma once

extern "C" {
#include <libavcodec/avcodec.h>
}

#include <memory>

#include "base/text/bytes.h"
#include "video/decode_result.h"
#include "video/free_by_address.h"
#include "video/hardware.h"

namespace lumsar::video {

class H264Decoder {
 public:
  // By `hardware` as far as that decodes the stream. Throws base::Failure.
  explicit H264Decoder(const Hardware& hardware = {});

  // One access unit. Those in front of the first key frame, and between a damaged one and the next
  // key frame, are damaged.
  DecodeResult decode(base::Bytes unit, bool isKey);
  // The last one that was decoded, until the next call.
  const AVFrame& frame() const { return *m_frame; }

 private:
  DecodeResult damaged();
  bool fetch();

  std::unique_ptr<AVCodecContext, FreeByAddress<avcodec_free_context>> m_codec;
  std::unique_ptr<AVPacket, FreeByAddress<av_packet_free>> m_packet;
  std::unique_ptr<AVFrame, FreeByAddress<av_frame_free>> m_frame;
  std::unique_ptr<AVFrame, FreeByAddress<av_frame_free>> m_onHardware;
  bool m_needsKey = true;
};

}  // namespace lumsar::video
