// JPEGs as small images, by GdkPixbuf. Reentrant.
#pragma once

#include "base/text/bytes.h"
#include "preview/preview.h"

namespace lumsar::viewer {

// Nothing of one that is damaged or too large.
Image decodeJpeg(base::Bytes jpeg, ImageSize space);

}  // namespace lumsar::viewer
