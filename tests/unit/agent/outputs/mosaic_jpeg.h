// Colour JPEGs made of flat 8 by 8 blocks: images that a browser shows, without an encoder.
// Used by the test of the page.
#pragma once

#include <functional>

#include "support/messages.h"

namespace lumsar::test {

struct Colour {
  double red = 0;  // 0 to 255
  double green = 0;
  double blue = 0;
};

// `paint` gives the colour of the block in column x and row y; the sizes are in blocks.
Bytes mosaicJpeg(int columns, int rows, const std::function<Colour(int x, int y)>& paint);

}  // namespace lumsar::test
