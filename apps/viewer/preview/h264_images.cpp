#include "preview/h264_images.h"

extern "C" {
#include <libavutil/frame.h>
#include <libavutil/opt.h>
#include <libswscale/swscale.h>
}

#include <exception>
#include <initializer_list>
#include <new>
#include <optional>
#include <utility>

#include "video/free_by_address.h"
#include "video/h264_decoder.h"

namespace lumsar::viewer {

namespace {

class AvImages final : public H264Images {
 public:
  bool decode(base::Bytes unit, bool isKey) override {
    return m_decoder.decode(unit, isKey) == video::DecodeResult::Decoded;
  }
  Image image(ImageSize space) override;

 private:
  struct Free {
    void operator()(SwsContext* context) const { sws_freeContext(context); }
  };
  // What a context was made for.
  struct Scaling {
    int layout;
    bool fullRange;
    ImageSize from;
    ImageSize to;
    bool operator==(const Scaling&) const = default;
  };

  bool prepare(const Scaling& scaling);

  video::H264Decoder m_decoder;
  std::optional<Scaling> m_scaling;
  std::unique_ptr<SwsContext, Free> m_context;
  std::unique_ptr<AVFrame, video::FreeByAddress<av_frame_free>> m_scaled;
};

bool AvImages::prepare(const Scaling& scaling) {
  if (m_scaling == scaling) return true;
  m_scaling.reset();
  m_context.reset(sws_alloc_context());
  m_scaled.reset(av_frame_alloc());
  if (!m_context || !m_scaled) throw std::bad_alloc();
  const std::initializer_list<std::pair<const char*, int>> options = {
      {"srcw", scaling.from.width},     {"srch", scaling.from.height},
      {"src_format", scaling.layout},   {"src_range", scaling.fullRange ? 1 : 0},
      {"dstw", scaling.to.width},       {"dsth", scaling.to.height},
      {"dst_format", AV_PIX_FMT_RGB24}, {"sws_flags", SWS_AREA}};
  for (const auto& [name, value] : options) av_opt_set_int(m_context.get(), name, value, 0);
  if (sws_init_context(m_context.get(), nullptr, nullptr) < 0) return false;
  // libswscale writes more than a row, for which a frame has space.
  m_scaled->format = AV_PIX_FMT_RGB24;
  m_scaled->width = scaling.to.width;
  m_scaled->height = scaling.to.height;
  if (av_frame_get_buffer(m_scaled.get(), 0) != 0) throw std::bad_alloc();
  m_scaling = scaling;
  return true;
}

Image AvImages::image(ImageSize space) {
  const AVFrame& frame = m_decoder.frame();
  const ImageSize from{frame.width, frame.height};
  const ImageSize to = sizeWithin(space, from);
  if (to == ImageSize{}) return {};
  const bool isOldRange = frame.format == AV_PIX_FMT_YUVJ420P;  // the same, but deprecated
  if (!prepare({isOldRange ? AV_PIX_FMT_YUV420P : frame.format,
                isOldRange || frame.color_range == AVCOL_RANGE_JPEG, from, to})) {
    return {};
  }
  AVFrame& scaled = *m_scaled;
  if (sws_scale(m_context.get(), frame.data, frame.linesize, 0, from.height, scaled.data,
                scaled.linesize) != to.height) {
    return {};
  }
  const std::unique_ptr<GdkPixbuf, decltype(&g_object_unref)> view(
      gdk_pixbuf_new_from_data(scaled.data[0], GDK_COLORSPACE_RGB, FALSE, 8, to.width, to.height,
                               scaled.linesize[0], nullptr, nullptr),
      g_object_unref);
  GdkPixbuf* copy = gdk_pixbuf_copy(view.get());
  if (copy == nullptr) throw std::bad_alloc();
  return {copy, g_object_unref};
}

}  // namespace
}  // namespace lumsar::viewer

extern "C" __attribute__((visibility("default"))) lumsar::viewer::H264Images* lumsarH264Images();

// The caller owns them.
lumsar::viewer::H264Images* lumsarH264Images() {
  try {
    return std::make_unique<lumsar::viewer::AvImages>().release();
  } catch (const std::exception&) {
    return nullptr;
  }
}
