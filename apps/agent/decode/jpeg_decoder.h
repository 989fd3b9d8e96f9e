// JpegDecoder: JPEGs from another machine as I420 frames, for consumers that want no JPEG. Not
// thread-safe.
#pragma once

#include <span>
#include <vector>

#include "base/text/bytes.h"
#include "decode/raw_format.h"

namespace lumsar::agent {

class JpegDecoder {
 public:
  // False when the JPEG is damaged, has another size, several scans or is too large. `to` has to
  // hold i420Bytes(size); after a failure its content is of no use. Throws std::bad_alloc.
  bool decode(base::Bytes jpeg, FrameSize size, std::span<unsigned char> to);

 private:
  std::vector<unsigned char> m_scratch;  // for planes that are not sampled like those of I420
};

}  // namespace lumsar::agent
