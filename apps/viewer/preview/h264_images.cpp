#include "preview/h264_images.h"

#include <exception>
#include <new>

#include "video/h264_decoder.h"
#include "video/image_converter.h"

namespace lumsar::viewer {

namespace {

class AvImages final : public H264Images {
 public:
  bool decode(base::Bytes unit, bool isKey) override {
    return m_decoder.decode(unit, isKey) == video::DecodeResult::Decoded;
  }
  Image image(ImageSize space) override;

 private:
  video::H264Decoder m_decoder;
  video::ImageConverter m_converter{SWS_AREA};
};

Image AvImages::image(ImageSize space) {
  const video::Image frame = video::imageOf(m_decoder.frame());
  const ImageSize to = sizeWithin(space, {frame.format.width, frame.format.height});
  if (to == ImageSize{}) return {};
  const AVFrame* const scaled = m_converter.convert(frame, {AV_PIX_FMT_RGB24, to.width, to.height});
  if (scaled == nullptr) return {};
  const std::unique_ptr<GdkPixbuf, decltype(&g_object_unref)> view(
      gdk_pixbuf_new_from_data(scaled->data[0], GDK_COLORSPACE_RGB, FALSE, 8, to.width, to.height,
                               scaled->linesize[0], nullptr, nullptr),
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
