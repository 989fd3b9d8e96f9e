// JPEGs that are decoded for programs which take no JPEG: two bytes for the announced size, then
// the JPEG. What is decoded depends on nothing else.
#include "decode/jpeg_decoder.h"

#include "fuzz/input.h"

using lumsar::agent::JpegDecoder;
using lumsar::fuzz::require;

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  lumsar::fuzz::Input input(data, size);
  lumsar::agent::FrameSize frame;
  frame.width = input.byte();
  frame.height = input.byte();
  const lumsar::fuzz::Bytes jpeg = input.rest();
  const std::size_t bytes = lumsar::agent::i420Bytes(frame);
  std::vector<unsigned char> first(bytes, 0x00);
  std::vector<unsigned char> second(bytes, 0xFF);
  static JpegDecoder used;
  const bool isDecoded = used.decode(jpeg, frame, first);
  require(JpegDecoder().decode(jpeg, frame, second) == isDecoded, "whatever was decoded before");
  require(!isDecoded || first == second, "nothing is left as it was");
  return 0;
}
