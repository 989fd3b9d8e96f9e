// What a camera's JPEG frame says of itself: nothing outside of it is read, and what counts as
// plain has all that it claims.
#include "formats/jpeg_header.h"

#include <cstring>

#include "fuzz/input.h"

using lumsar::fuzz::require;
using lumsar::service::JpegHeader;

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  const JpegHeader header = lumsar::service::readJpegHeader({data, size});
  const bool plain = header.state == JpegHeader::State::Plain;
  require(plain == (std::strlen(header.fault) == 0), "what is not plain has a fault");
  if (header.state == JpegHeader::State::Damaged) return 0;
  require(header.size >= 4 && header.size <= size, "it ends within the frame");
  require(data[0] == 0xFF && data[1] == 0xD8, "it has a beginning");
  require(data[header.size - 2] == 0xFF && data[header.size - 1] == 0xD9, "and an end");
  require(header.quality >= 1 && header.quality <= 100, "its quality is one");
  require(header.width >= 0 && header.height >= 0, "and so are its sides");
  return 0;
}
