#include "outputs/pipewire/formats.h"

#include <spa/buffer/buffer.h>
#include <spa/buffer/meta.h>
#include <spa/param/buffers.h>
#include <spa/param/video/format-utils.h>

#include <algorithm>

namespace lumsar::agent {
namespace {

// No JPEG of a camera takes more than two bytes a pixel; a header fits in any case.
constexpr std::size_t kMinBufferBytes = std::size_t{64} << 10U;
constexpr std::size_t kMaxBufferBytes = std::size_t{32} << 20U;
constexpr int kBuffers = 4;
constexpr int kMinBuffers = 2;
constexpr int kMaxBuffers = 8;
constexpr int kMemory = (1 << SPA_DATA_MemPtr) | (1 << SPA_DATA_MemFd);  // which can be written to
constexpr std::uint32_t kSecond = 1'000'000;
constexpr std::uint32_t kUsualRate = 30;

std::uint32_t subtypeOf(std::uint32_t encoding) {
  if (encoding == kEncodingMjpg) return SPA_MEDIA_SUBTYPE_mjpg;
  if (encoding == kEncodingH264) return SPA_MEDIA_SUBTYPE_h264;
  return SPA_MEDIA_SUBTYPE_unknown;
}

// Frames may come more seldom than announced, as in the dark.
void addRateAndSize(spa_pod_builder* builder, const OfferedFormat& format) {
  const spa_rectangle size = {format.size.width, format.size.height};
  const spa_fraction rate = format.frameInterval == 0 ? spa_fraction{kUsualRate, 1}
                                                      : spa_fraction{kSecond, format.frameInterval};
  const spa_fraction none = {0, 1};
  spa_pod_builder_add(builder, SPA_FORMAT_VIDEO_size, SPA_POD_Rectangle(&size),
                      SPA_FORMAT_VIDEO_framerate,
                      SPA_POD_CHOICE_RANGE_Fraction(&rate, &none, &rate), 0);
}

const spa_pod* formatPod(spa_pod_builder* builder, const OfferedFormat& format,
                         std::uint32_t subtype) {
  spa_pod_frame frame = {};
  spa_pod_builder_push_object(builder, &frame, SPA_TYPE_OBJECT_Format, SPA_PARAM_EnumFormat);
  spa_pod_builder_add(builder, SPA_FORMAT_mediaType, SPA_POD_Id(SPA_MEDIA_TYPE_video),
                      SPA_FORMAT_mediaSubtype, SPA_POD_Id(subtype), 0);
  if (subtype == SPA_MEDIA_SUBTYPE_raw) {  // with the values of a JPEG
    spa_pod_builder_add(builder, SPA_FORMAT_VIDEO_format, SPA_POD_Id(SPA_VIDEO_FORMAT_I420),
                        SPA_FORMAT_VIDEO_colorRange, SPA_POD_Id(SPA_VIDEO_COLOR_RANGE_0_255),
                        SPA_FORMAT_VIDEO_colorMatrix, SPA_POD_Id(SPA_VIDEO_COLOR_MATRIX_BT601), 0);
  }
  addRateAndSize(builder, format);
  return static_cast<const spa_pod*>(spa_pod_builder_pop(builder, &frame));
}

}  // namespace

Pods formatPods(PodSpace& space, const OfferedFormat& format) {
  Pods pods;
  const std::uint32_t subtype = subtypeOf(format.encoding);
  if (subtype == SPA_MEDIA_SUBTYPE_unknown) return pods;
  pods.push_back(formatPod(space.builder(), format, subtype));
  if (subtype == SPA_MEDIA_SUBTYPE_mjpg && isDecodable(format.size)) {
    pods.push_back(formatPod(space.builder(), format, SPA_MEDIA_SUBTYPE_raw));
  }
  return pods;
}

std::size_t bufferBytes(const ChosenFormat& format) {
  if (format.isRaw()) return i420Bytes(format.size);
  const std::size_t pixels = std::size_t{format.size.width} * format.size.height;
  return std::clamp(2 * pixels, kMinBufferBytes, kMaxBufferBytes);
}

Pods bufferPods(PodSpace& space, const ChosenFormat& format) {
  spa_pod_builder* builder = space.builder();
  spa_pod_frame frame = {};
  Pods pods;
  spa_pod_builder_push_object(builder, &frame, SPA_TYPE_OBJECT_ParamBuffers, SPA_PARAM_Buffers);
  spa_pod_builder_add(builder, SPA_PARAM_BUFFERS_buffers,
                      SPA_POD_CHOICE_RANGE_Int(kBuffers, kMinBuffers, kMaxBuffers),
                      SPA_PARAM_BUFFERS_blocks, SPA_POD_Int(1), SPA_PARAM_BUFFERS_size,
                      SPA_POD_Int(static_cast<int>(bufferBytes(format))), SPA_PARAM_BUFFERS_stride,
                      SPA_POD_Int(format.isRaw() ? format.size.width : 0),
                      SPA_PARAM_BUFFERS_dataType, SPA_POD_CHOICE_FLAGS_Int(kMemory), 0);
  pods.push_back(static_cast<const spa_pod*>(spa_pod_builder_pop(builder, &frame)));
  spa_pod_builder_push_object(builder, &frame, SPA_TYPE_OBJECT_ParamMeta, SPA_PARAM_Meta);
  spa_pod_builder_add(builder, SPA_PARAM_META_type, SPA_POD_Id(SPA_META_Header),
                      SPA_PARAM_META_size, SPA_POD_Int(sizeof(spa_meta_header)), 0);
  pods.push_back(static_cast<const spa_pod*>(spa_pod_builder_pop(builder, &frame)));
  return pods;
}

std::optional<ChosenFormat> readFormat(const spa_pod* pod) {
  std::uint32_t type = 0;
  std::uint32_t subtype = 0;
  spa_rectangle size = {};
  if (pod == nullptr || spa_format_parse(pod, &type, &subtype) < 0 ||
      type != SPA_MEDIA_TYPE_video ||
      spa_pod_parse_object(pod, SPA_TYPE_OBJECT_Format, nullptr, SPA_FORMAT_VIDEO_size,
                           SPA_POD_Rectangle(&size)) < 0) {
    return std::nullopt;
  }
  ChosenFormat format;
  format.size = {static_cast<std::uint16_t>(size.width), static_cast<std::uint16_t>(size.height)};
  for (const std::uint32_t encoding : {kEncodingMjpg, kEncodingH264}) {
    if (subtypeOf(encoding) == subtype) format.encoding = encoding;
  }
  if (format.isRaw() && subtype != SPA_MEDIA_SUBTYPE_raw) return std::nullopt;
  return format;
}

}  // namespace lumsar::agent
