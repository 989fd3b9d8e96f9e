#include "preview/jpeg_image.h"

#include "protocol/jpeg_segments.h"

namespace lumsar::viewer {

namespace {

// Called before any pixel is decoded, which then takes little memory and time.
void sizePrepared(GdkPixbufLoader* loader, int width, int height, gpointer space) {
  const ImageSize size = sizeWithin(*static_cast<const ImageSize*>(space), {width, height});
  gdk_pixbuf_loader_set_size(loader, size.width, size.height);
}

}  // namespace

Image decodeJpeg(base::Bytes jpeg, ImageSize space) {
  // Of one that is cut off, the loader would show the beginning.
  if (!protocol::isCompleteJpeg(jpeg)) return {};
  const std::unique_ptr<GdkPixbufLoader, decltype(&g_object_unref)> loader(
      gdk_pixbuf_loader_new_with_type("jpeg", nullptr), g_object_unref);
  if (!loader) return {};
  g_signal_connect(loader.get(), "size-prepared", G_CALLBACK(sizePrepared), &space);
  const bool isRead =
      gdk_pixbuf_loader_write(loader.get(), jpeg.data(), jpeg.size(), nullptr) == TRUE;
  // In any case, as it has begun.
  const bool isWhole = gdk_pixbuf_loader_close(loader.get(), nullptr) == TRUE;
  GdkPixbuf* image = gdk_pixbuf_loader_get_pixbuf(loader.get());
  if (!isRead || !isWhole || image == nullptr) return {};
  return {GDK_PIXBUF(g_object_ref(image)), g_object_unref};
}

}  // namespace lumsar::viewer
