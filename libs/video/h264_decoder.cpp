#include "video/h264_decoder.h"

#include <algorithm>
#include <cerrno>
#include <new>
#include <utility>

#include "base/errors.h"

namespace lumsar::video {

H264Decoder::H264Decoder(const Hardware& hardware) {
  const AVCodec* codec = avcodec_find_decoder(AV_CODEC_ID_H264);
  if (codec == nullptr) throw base::Failure("libavcodec lacks a decoder for H.264");
  m_codec.reset(avcodec_alloc_context3(codec));
  m_packet.reset(av_packet_alloc());
  m_frame.reset(av_frame_alloc());
  m_onHardware.reset(av_frame_alloc());
  if (!m_codec || !m_packet || !m_frame || !m_onHardware) throw std::bad_alloc();
  m_codec->flags |= AV_CODEC_FLAG_LOW_DELAY;
  m_codec->log_level_offset = AV_LOG_MAX_OFFSET;  // damage is not worth lines in a program's log
  m_codec->thread_count = 1;                      // more would hold frames back
  m_codec->max_pixels = static_cast<std::int64_t>(kMaxDecodedPixels);
  // A damaged frame would spoil those after it, too: the next key frame is waited for instead.
  m_codec->err_recognition = AV_EF_CRCCHECK | AV_EF_BITSTREAM | AV_EF_BUFFER | AV_EF_EXPLODE;
  hardware.offer(*m_codec);
  if (avcodec_open2(m_codec.get(), codec, nullptr) != 0) {
    throw base::Failure("libavcodec cannot open its decoder for H.264");
  }
}

DecodeResult H264Decoder::damaged() {
  avcodec_flush_buffers(m_codec.get());
  m_needsKey = true;
  return DecodeResult::Damaged;
}

DecodeResult H264Decoder::decode(base::Bytes unit, bool isKey) {
  if (m_needsKey && !isKey) return DecodeResult::Damaged;
  m_needsKey = false;
  av_packet_unref(m_packet.get());
  if (av_new_packet(m_packet.get(), static_cast<int>(unit.size())) != 0) throw std::bad_alloc();
  std::copy(unit.begin(), unit.end(), m_packet->data);
  if (avcodec_send_packet(m_codec.get(), m_packet.get()) != 0) return damaged();
  const int received = avcodec_receive_frame(m_codec.get(), m_frame.get());
  if (received == AVERROR(EAGAIN)) return DecodeResult::NotYet;
  if (received != 0 || m_frame->decode_error_flags != 0) return damaged();
  if ((m_frame->flags & AV_FRAME_FLAG_CORRUPT) != 0) return damaged();
  return fetch() ? DecodeResult::Decoded : damaged();
}

// From the device, if it is there, to memory.
bool H264Decoder::fetch() {
  if (!Hardware::holds(*m_frame)) return true;
  av_frame_unref(m_onHardware.get());
  std::swap(m_frame, m_onHardware);
  return av_hwframe_transfer_data(m_frame.get(), m_onHardware.get(), 0) == 0 &&
         av_frame_copy_props(m_frame.get(), m_onHardware.get()) == 0;
}

}  // namespace lumsar::video
