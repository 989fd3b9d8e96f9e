// What a JPEG frame says of itself in front of its coded data: whether it can be used as it is, its
// size, and the quality that its quantisation tables stand for. Nothing is decoded.
#pragma once

#include <cstddef>

#include "base/text/bytes.h"

namespace lumsar::service {

struct JpegHeader {
  enum class State {
    Plain,    // complete, and every decoder reads it
    Unusual,  // progressive, without Huffman tables, and the like: not for every decoder
    Damaged,  // cut off, or it contradicts itself
  };

  State state = State::Damaged;
  const char* fault = "";  // why it is not plain, as "it ..."
  int width = 0;           // this and the following only where the frame gets as far as saying so
  int height = 0;
  int quality = 0;       // 1 to 100, as libjpeg counts; an estimate
  std::size_t size = 0;  // with its end marker, without the zeros or ones that some cameras append
};

JpegHeader readJpegHeader(base::Bytes frame);

}  // namespace lumsar::service
