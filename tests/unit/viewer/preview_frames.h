// Frames of one colour, as a camera sends them, and what their previews look like.
#pragma once

#include <gdk-pixbuf/gdk-pixbuf.h>

#include <cstdlib>

#include "preview/preview.h"
#include "support/messages.h"

namespace lumsar::test {

inline constexpr guint32 kRed = 0xFF0000FF;  // and opaque
inline constexpr guint32 kBlue = 0x0000FFFF;

inline viewer::Image imageOf(guint32 colour, int width, int height) {
  GdkPixbuf* image = gdk_pixbuf_new(GDK_COLORSPACE_RGB, FALSE, 8, width, height);
  gdk_pixbuf_fill(image, colour);
  return {image, g_object_unref};
}

inline Bytes encoded(const viewer::Image& image, const char* type) {
  g_autofree char* bytes = nullptr;
  gsize size = 0;
  gdk_pixbuf_save_to_buffer(image.get(), &bytes, &size, type, nullptr, nullptr);
  return {bytes, bytes + size};
}
inline Bytes jpegOf(guint32 colour, int width = 640, int height = 480) {
  return encoded(imageOf(colour, width, height), "jpeg");
}

// Whether a pixel of three bytes looks like it.
inline bool isLike(guint32 colour, const unsigned char* pixel) {
  for (int i = 0; i < 3; ++i) {
    const int wanted = static_cast<int>(colour >> (24 - 8 * i) & 0xFFU);
    if (std::abs(wanted - pixel[i]) > 10) return false;
  }
  return true;
}
inline bool isLike(guint32 colour, const viewer::Image& image) {
  const int row = gdk_pixbuf_get_height(image.get()) / 2;
  const int column = gdk_pixbuf_get_width(image.get()) / 2;
  return isLike(colour, gdk_pixbuf_read_pixels(image.get()) +
                            row * gdk_pixbuf_get_rowstride(image.get()) +
                            column * gdk_pixbuf_get_n_channels(image.get()));
}

}  // namespace lumsar::test
