#include "unit/video/h264_stream.h"

extern "C" {
#include <libavutil/opt.h>
}

#include <algorithm>
#include <stdexcept>

namespace lumsar::test {
namespace {

void check(int result) {
  if (result < 0) throw std::runtime_error("libavcodec cannot encode H.264 here");
}

}  // namespace

H264Stream::H264Stream(int width, int height)
    : m_encoder(avcodec_alloc_context3(avcodec_find_encoder_by_name("libx264"))),
      m_frame(av_frame_alloc()),
      m_packet(av_packet_alloc()) {
  m_encoder->width = m_frame->width = width;
  m_encoder->height = m_frame->height = height;
  m_encoder->pix_fmt = AV_PIX_FMT_YUV420P;
  m_encoder->time_base = {1, 30};
  m_encoder->gop_size = 1000;  // key frames come when they are asked for
  av_opt_set(m_encoder->priv_data, "preset", "ultrafast", 0);
  av_opt_set(m_encoder->priv_data, "tune", "zerolatency", 0);
  av_log_set_level(AV_LOG_QUIET);
  check(avcodec_open2(m_encoder.get(), nullptr, nullptr));
  m_frame->format = AV_PIX_FMT_YUV420P;
  check(av_frame_get_buffer(m_frame.get(), 0));
}

Bytes H264Stream::next(int level, bool isKey) {
  check(av_frame_make_writable(m_frame.get()));
  for (int plane = 0; plane < 3; ++plane) {
    const int rows = plane == 0 ? m_frame->height : m_frame->height / 2;
    std::fill_n(m_frame->data[plane], m_frame->linesize[plane] * rows,
                static_cast<unsigned char>(plane == 0 ? level : 128));
  }
  ++m_frame->pts;
  m_frame->pict_type = isKey ? AV_PICTURE_TYPE_I : AV_PICTURE_TYPE_NONE;
  check(avcodec_send_frame(m_encoder.get(), m_frame.get()));
  check(avcodec_receive_packet(m_encoder.get(), m_packet.get()));
  Bytes unit(m_packet->data, m_packet->data + m_packet->size);
  av_packet_unref(m_packet.get());
  return unit;
}

}  // namespace lumsar::test
