// The little that is known of JPEG without a codec: whether a frame is complete, and the placards
// of any size, whose segments must lead to its end.
#include "outputs/placard.h"
#include "protocol/jpeg_segments.h"

#include "fuzz/input.h"

namespace {

using lumsar::fuzz::Bytes;
using lumsar::fuzz::require;

constexpr unsigned kMostSide = 2048;  // above that only the time differs

unsigned both(Bytes bytes, std::size_t at) {
  require(at + 1 < bytes.size(), "a segment is inside the image");
  return static_cast<unsigned>(bytes[at]) << 8U | bytes[at + 1];
}

// The size in the frame header, found the way a decoder does.
std::pair<unsigned, unsigned> sizeOf(Bytes jpeg) {
  std::size_t at = 2;
  while (both(jpeg, at) != 0xFFC0) {
    require(jpeg[at] == 0xFF, "a segment begins with a marker");
    at += 2 + both(jpeg, at + 2);
  }
  return {both(jpeg, at + 7), both(jpeg, at + 5)};
}

void checkPlacard(std::uint16_t width, std::uint16_t height) {
  const auto jpeg = lumsar::agent::placard(lumsar::agent::Notice::NoSignal, lumsar::kEncodingMjpg,
                                           {width, height});
  require(lumsar::protocol::isCompleteJpeg(jpeg), "the placard is complete");
  require(sizeOf(jpeg) == std::pair<unsigned, unsigned>(width, height), "and has its size");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  lumsar::fuzz::Input input(data, size);
  const auto side = [&] {
    const unsigned low = input.byte();
    return static_cast<std::uint16_t>((low | static_cast<unsigned>(input.byte()) << 8U) %
                                      kMostSide);
  };
  const auto width = side();
  checkPlacard(width, side());
  const Bytes rest = input.rest();
  if (!lumsar::protocol::isCompleteJpeg(rest)) return 0;
  require(both(rest, 0) == 0xFFD8 && both(rest, rest.size() - 2) == 0xFFD9, "it has both ends");
  require(rest.size() >= 4, "which are not the same");
  return 0;
}
