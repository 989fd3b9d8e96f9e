// Streams of H.264 from another machine: what is decoded has a size that is allowed and is there,
// and after damage nothing is until the next key frame.
//
// Input: access units, each a byte that says whether it is a key frame, its length and itself.
#include "video/h264_decoder.h"

extern "C" {
#include <libavutil/imgutils.h>
}

#include <vector>

#include "fuzz/input.h"

namespace {

using namespace lumsar::video;
using lumsar::fuzz::require;

constexpr int kMostUnits = 30;  // above that only the time differs

// A sanitizer watches the reading.
void readAll(const AVFrame& frame) {
  const auto layout = static_cast<AVPixelFormat>(frame.format);
  const int bytes = av_image_get_buffer_size(layout, frame.width, frame.height, 1);
  require(bytes > 0, "a decoded frame has a layout and a size");
  std::vector<unsigned char> copy(static_cast<std::size_t>(bytes));
  require(av_image_copy_to_buffer(copy.data(), bytes, frame.data, frame.linesize, layout,
                                  frame.width, frame.height, 1) == bytes,
          "a decoded frame is there");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  lumsar::fuzz::Input input(data, size);
  H264Decoder decoder;
  bool needsKey = true;
  for (int i = 0; i < kMostUnits && !input.empty(); ++i) {
    const bool isKey = input.byte() % 2 == 1;
    const DecodeResult result = decoder.decode(input.piece(), isKey);
    require(!needsKey || isKey || result == DecodeResult::Damaged,
            "a stream begins at a key frame");
    needsKey = result == DecodeResult::Damaged;
    if (result != DecodeResult::Decoded) continue;
    const AVFrame& frame = decoder.frame();
    require(frame.width > 0 && frame.height > 0, "a decoded frame has a size");
    require(static_cast<std::size_t>(frame.width) * static_cast<std::size_t>(frame.height) <=
                kMaxDecodedPixels,
            "no frame is larger than allowed");
    readAll(frame);
  }
  return 0;
}
