// Images of any size as raw frames of any size and layout: nothing but the frame is written to.
#include "decode/scaler.h"

#include <vector>

#include "fuzz/raw_frame.h"

using namespace lumsar::agent;
using lumsar::fuzz::side;

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  constexpr std::size_t kReadAhead = 64;
  lumsar::fuzz::Input input(data, size);
  const RawFormat format = lumsar::fuzz::rawFormat(input);
  Scaler scaler(format);
  for (int i = 0; i < 3; ++i) {  // a stream changes its size
    const FrameSize from = {side(input), side(input)};
    const std::size_t bytes = i420Bytes(from);
    const std::vector<unsigned char> planes(bytes + kReadAhead, input.byte());
    const int columns = (from.width + 1) / 2;
    const std::size_t pixels = std::size_t{from.width} * from.height;
    const unsigned char* const colours = planes.data() + pixels;
    const lumsar::video::Image image{
        {AV_PIX_FMT_YUV420P, from.width, from.height, input.byte() % 2 == 0},
        {planes.data(), colours, colours + (bytes - pixels) / 2, nullptr},
        {from.width, columns, columns, 0}};
    lumsar::fuzz::RawFrame to(format);
    scaler.scale(image, to.bytes());
    to.requireNothingBehind();
  }
  return 0;
}
