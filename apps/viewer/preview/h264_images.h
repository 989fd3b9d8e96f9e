// H264Images: a stream of H.264 as small images. What makes them is a library of its own, which is
// loaded for the first stream, as libavcodec brings a hundred others with it. Bound to one thread.
#pragma once

#include <memory>

#include "base/text/bytes.h"
#include "preview/preview.h"

namespace lumsar::viewer {

class H264Images {
 public:
  virtual ~H264Images() = default;
  // Every access unit from a key frame on; whether there is a frame. After a damaged one there is
  // none until the next key frame.
  virtual bool decode(base::Bytes unit, bool isKey) = 0;
  // Of that frame; nothing of one that is too large.
  virtual Image image(ImageSize space) = 0;
};

// Null where the library is missing.
std::unique_ptr<H264Images> loadH264Images();

}  // namespace lumsar::viewer
