// Images of any size as raw frames of any size and layout: nothing but the frame is written to.
#include "decode/scaler.h"

#include <vector>

#include "fuzz/input.h"

using namespace lumsar::agent;
using lumsar::fuzz::require;

namespace {

constexpr std::uint16_t kMostSide = 512;  // above that only the time differs
constexpr std::uint32_t kLayouts[] = {kRawI420, kRawYuy2, kRawNv12};
constexpr unsigned char kUntouched = 77;
constexpr std::size_t kMargin = 64;

std::uint16_t side(lumsar::fuzz::Input& input) {
  const unsigned low = input.byte();
  const unsigned value = low | static_cast<unsigned>(input.byte()) << 8U;
  return static_cast<std::uint16_t>(value % kMostSide + 1);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  lumsar::fuzz::Input input(data, size);
  const RawFormat format{
      kLayouts[input.byte() % 3], {side(input), side(input)}, input.byte() % 2 == 0};
  Scaler scaler(format);
  const std::size_t needed = rawBytes(format.encoding, format.size);
  for (int i = 0; i < 3; ++i) {  // a stream changes its size
    const FrameSize from = {side(input), side(input)};
    const std::size_t bytes = i420Bytes(from);
    const std::vector<unsigned char> planes(bytes + kMargin, input.byte());
    std::vector<unsigned char> to(needed + kMargin, kUntouched);
    const int columns = (from.width + 1) / 2;
    const std::size_t pixels = std::size_t{from.width} * from.height;
    const unsigned char* const colours = planes.data() + pixels;
    const lumsar::video::Image image{
        {AV_PIX_FMT_YUV420P, from.width, from.height, input.byte() % 2 == 0},
        {planes.data(), colours, colours + (bytes - pixels) / 2, nullptr},
        {from.width, columns, columns, 0}};
    scaler.scale(image, std::span(to).first(needed));
    for (std::size_t at = needed; at < to.size(); ++at) {
      require(to[at] == kUntouched, "what is behind the frame stays as it is");
    }
  }
  return 0;
}
