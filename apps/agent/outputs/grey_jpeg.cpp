// A grey JPEG without an encoder: with Huffman tables in which "no change" and "no more" are one
// zero bit each, the whole scan is zero bits.
#include "outputs/jpeg.h"

namespace lumsar::agent {
namespace {

using JpegData = std::vector<unsigned char>;

void segment(JpegData& jpeg, unsigned char marker, std::initializer_list<unsigned> bytes) {
  const std::size_t length = bytes.size() + 2;
  jpeg.insert(jpeg.end(), {0xFF, marker, static_cast<unsigned char>(length >> 8U),
                           static_cast<unsigned char>(length)});
  for (const unsigned byte : bytes) jpeg.push_back(static_cast<unsigned char>(byte));
}

// One table whose only code is the single bit 0 for the value 0.
void huffmanTable(JpegData& jpeg, unsigned classAndNumber) {
  segment(jpeg, 0xC4, {classAndNumber, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0});
}

void quantisation(JpegData& jpeg) {
  JpegData table(65, 16);
  table[0] = 0;  // its number
  jpeg.insert(jpeg.end(), {0xFF, 0xDB, 0, 67});
  jpeg.insert(jpeg.end(), table.begin(), table.end());
}

}  // namespace

std::vector<unsigned char> greyJpeg(std::uint16_t width, std::uint16_t height) {
  const unsigned w = width;
  const unsigned h = height;
  JpegData jpeg{0xFF, 0xD8};
  quantisation(jpeg);
  // Three components, the two of colour at half the size each way.
  segment(jpeg, 0xC0,
          {8, h >> 8U, h & 0xFFU, w >> 8U, w & 0xFFU, 3, 1, 0x22, 0, 2, 0x11, 0, 3, 0x11, 0});
  huffmanTable(jpeg, 0x00);
  huffmanTable(jpeg, 0x10);
  segment(jpeg, 0xDA, {3, 1, 0, 2, 0, 3, 0, 0, 63, 0});
  const std::size_t units = std::size_t{(w + 15) / 16} * ((h + 15) / 16);
  const std::size_t bits = units * 12;  // six blocks of two bits
  jpeg.resize(jpeg.size() + (bits + 7) / 8);
  if (bits % 8 != 0) jpeg.back() = static_cast<unsigned char>(0xFFU >> (bits % 8));
  jpeg.insert(jpeg.end(), {0xFF, 0xD9});
  return jpeg;
}

}  // namespace lumsar::agent
