#include "outputs/pipewire/formats.h"

#include <spa/buffer/buffer.h>
#include <spa/buffer/meta.h>
#include <spa/param/buffers.h>
#include <spa/param/video/format-utils.h>

#include <algorithm>
#include <iterator>

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

struct RawLayout {
  std::uint32_t encoding;
  std::uint32_t number;  // PipeWire's
};
constexpr std::array<RawLayout, 3> kRawLayouts = {{{kRawI420, SPA_VIDEO_FORMAT_I420},
                                                   {kRawYuy2, SPA_VIDEO_FORMAT_YUY2},
                                                   {kRawNv12, SPA_VIDEO_FORMAT_NV12}}};

// Which programs ask for, besides the camera's own. Each is a format of its own, as programs do not
// read alternatives within one.
constexpr std::array<FrameSize, 4> kUsualSizes = {
    {{1280, 720}, {640, 480}, {640, 360}, {320, 240}}};

std::vector<FrameSize> rawSizes(FrameSize camera) {
  std::vector<FrameSize> sizes = {camera};
  std::ranges::copy_if(kUsualSizes, std::back_inserter(sizes), [camera](FrameSize size) {
    return size != camera && size.width <= camera.width && size.height <= camera.height;
  });
  return sizes;
}

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
                         std::uint32_t subtype, std::uint32_t layout = 0) {
  spa_pod_frame frame = {};
  spa_pod_builder_push_object(builder, &frame, SPA_TYPE_OBJECT_Format, SPA_PARAM_EnumFormat);
  spa_pod_builder_add(builder, SPA_FORMAT_mediaType, SPA_POD_Id(SPA_MEDIA_TYPE_video),
                      SPA_FORMAT_mediaSubtype, SPA_POD_Id(subtype), 0);
  if (subtype == SPA_MEDIA_SUBTYPE_raw) {
    const auto range =
        isFullRange(format) ? SPA_VIDEO_COLOR_RANGE_0_255 : SPA_VIDEO_COLOR_RANGE_16_235;
    spa_pod_builder_add(builder, SPA_FORMAT_VIDEO_format, SPA_POD_Id(layout),
                        SPA_FORMAT_VIDEO_colorRange, SPA_POD_Id(range),
                        SPA_FORMAT_VIDEO_colorMatrix, SPA_POD_Id(SPA_VIDEO_COLOR_MATRIX_BT601), 0);
  }
  addRateAndSize(builder, format);
  return static_cast<const spa_pod*>(spa_pod_builder_pop(builder, &frame));
}

}  // namespace

bool isFullRange(const OfferedFormat& format) {
  return format.encoding == kEncodingMjpg;
}

Pods formatPods(PodSpace& space, const OfferedFormat& format) {
  Pods pods;
  const std::uint32_t subtype = subtypeOf(format.encoding);
  if (subtype == SPA_MEDIA_SUBTYPE_unknown) return pods;
  pods.push_back(formatPod(space.builder(), format, subtype));
  if (!format.asRaw || !isDecodable(format.size)) return pods;
  OfferedFormat scaled = format;
  for (const RawLayout& raw : kRawLayouts) {
    for (const FrameSize size : rawSizes(format.size)) {
      scaled.size = size;
      pods.push_back(formatPod(space.builder(), scaled, SPA_MEDIA_SUBTYPE_raw, raw.number));
    }
  }
  return pods;
}

std::size_t bufferBytes(const ChosenFormat& format) {
  if (isRaw(format.encoding)) return rawBytes(format.encoding, format.size);
  const std::size_t pixels = std::size_t{format.size.width} * format.size.height;
  return std::clamp(2 * pixels, kMinBufferBytes, kMaxBufferBytes);
}

std::size_t strideOf(const ChosenFormat& format) {
  return isRaw(format.encoding) ? rawStride(format.encoding, format.size) : 0;
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
                      SPA_POD_Int(static_cast<int>(strideOf(format))), SPA_PARAM_BUFFERS_dataType,
                      SPA_POD_CHOICE_FLAGS_Int(kMemory), 0);
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
  std::uint32_t layout = 0;
  if (subtype == SPA_MEDIA_SUBTYPE_raw) {
    spa_pod_parse_object(pod, SPA_TYPE_OBJECT_Format, nullptr, SPA_FORMAT_VIDEO_format,
                         SPA_POD_Id(&layout));
    const auto* raw = std::ranges::find(kRawLayouts, layout, &RawLayout::number);
    if (raw != kRawLayouts.end()) format.encoding = raw->encoding;
  }
  return format.encoding == 0 ? std::nullopt : std::optional(format);
}

}  // namespace lumsar::agent
