// Flat blocks need only their mean, so the Huffman tables are the simplest that are allowed: means
// differ by 4-bit size codes, and "nothing more in this block" is one zero bit.
#include "unit/agent/outputs/mosaic_jpeg.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <initializer_list>

namespace lumsar::test {
namespace {

class BitWriter {
 public:
  explicit BitWriter(Bytes& to) : m_to(to) {}
  void put(unsigned value, int bits) {
    for (int i = bits; i-- > 0;) {
      m_byte = m_byte << 1U | (value >> i & 1U);
      if (++m_count == 8) flush();
    }
  }
  void finish() {
    while (m_count != 0) put(1, 1);
  }

 private:
  void flush() {
    m_to.push_back(static_cast<unsigned char>(m_byte));
    if ((m_byte & 0xFFU) == 0xFF) m_to.push_back(0);
    m_byte = 0;
    m_count = 0;
  }
  Bytes& m_to;
  unsigned m_byte = 0;
  int m_count = 0;
};

void segment(Bytes& jpeg, unsigned marker, std::vector<unsigned> bytes) {
  const auto length = static_cast<unsigned>(bytes.size() + 2);
  bytes.insert(bytes.begin(), {0xFFU, marker, length >> 8U, length & 0xFFU});
  for (const unsigned byte : bytes) jpeg.push_back(static_cast<unsigned char>(byte));
}

void putMean(BitWriter& bits, int difference) {
  int size = 0;
  for (int rest = std::abs(difference); rest > 0; rest /= 2) ++size;
  bits.put(static_cast<unsigned>(size), 4);
  bits.put(static_cast<unsigned>(difference < 0 ? difference - 1 : difference), size);
  bits.put(0, 1);
}

int clampMean(double value) {
  return static_cast<int>(std::lround(std::clamp(value, -128.0, 127.0)));
}

}  // namespace

Bytes mosaicJpeg(int columns, int rows, const std::function<Colour(int x, int y)>& paint) {
  Bytes jpeg{0xFF, 0xD8};
  std::vector<unsigned> quantisation(65, 8);
  quantisation[0] = 0;
  segment(jpeg, 0xDB, quantisation);
  const auto w = static_cast<unsigned>(columns * 8);
  const auto h = static_cast<unsigned>(rows * 8);
  segment(jpeg, 0xC0,
          {8, h >> 8U, h & 0xFFU, w >> 8U, w & 0xFFU, 3, 1, 0x11, 0, 2, 0x11, 0, 3, 0x11, 0});
  segment(jpeg, 0xC4, {0x00, 0, 0, 0, 12, 0, 0, 0, 0, 0, 0, 0, 0,  0, 0,
                       0,    0, 0, 1, 2,  3, 4, 5, 6, 7, 8, 9, 10, 11});
  segment(jpeg, 0xC4, {0x10, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0});
  segment(jpeg, 0xDA, {3, 1, 0, 2, 0, 3, 0, 0, 63, 0});
  BitWriter bits(jpeg);
  int last[3] = {0, 0, 0};
  for (int y = 0; y < rows; ++y) {
    for (int x = 0; x < columns; ++x) {
      const Colour c = paint(x, y);
      const int means[3] = {clampMean(0.299 * c.red + 0.587 * c.green + 0.114 * c.blue - 128),
                            clampMean(-0.1687 * c.red - 0.3313 * c.green + 0.5 * c.blue),
                            clampMean(0.5 * c.red - 0.4187 * c.green - 0.0813 * c.blue)};
      for (int i = 0; i < 3; ++i) {
        putMean(bits, means[i] - last[i]);
        last[i] = means[i];
      }
    }
  }
  bits.finish();
  jpeg.insert(jpeg.end(), {0xFF, 0xD9});
  return jpeg;
}

}  // namespace lumsar::test
