#include "video/hardware.h"

#include <new>

namespace lumsar::video {
namespace {

// libavcodec asks for each stream; the first of its own formats is for what the device lacks.
AVPixelFormat chooseFormat(AVCodecContext* decoder, const AVPixelFormat* formats) {
  for (const AVPixelFormat* format = formats; *format != AV_PIX_FMT_NONE; ++format) {
    if (*format == AV_PIX_FMT_VAAPI) return *format;
  }
  return avcodec_default_get_format(decoder, formats);
}

}  // namespace

Hardware Hardware::open() {
  Hardware hardware;
  AVBufferRef* device = nullptr;
  if (av_hwdevice_ctx_create(&device, AV_HWDEVICE_TYPE_VAAPI, nullptr, nullptr, 0) == 0) {
    hardware.m_device.reset(device);
  }
  return hardware;
}

void Hardware::offer(AVCodecContext& decoder) const {
  if (!m_device) return;
  decoder.hw_device_ctx = av_buffer_ref(m_device.get());
  if (decoder.hw_device_ctx == nullptr) throw std::bad_alloc();
  decoder.get_format = chooseFormat;
}

}  // namespace lumsar::video
