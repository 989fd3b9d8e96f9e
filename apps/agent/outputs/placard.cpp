#include "outputs/placard.h"

#include <algorithm>
#include <array>
#include <initializer_list>
#include <string_view>

namespace lumsar::agent {
namespace {

using Bytes = std::vector<unsigned char>;

constexpr int kBlock = 8;  // pixels: the smallest square that a letter is made of, and of a JPEG
constexpr unsigned char kGrey = 128;
constexpr unsigned char kWhite = 224;

constexpr int kLetterWidth = 5;
constexpr int kLetterHeight = 7;
constexpr int kColumnWidth = kLetterWidth + 1;
constexpr int kLineHeight = kLetterHeight + 2;

struct Letter {
  char letter;
  std::array<unsigned char, kLetterHeight> rows;  // the highest of five bits on the left
};
constexpr std::array<Letter, 12> kLetters = {{
    {'A', {0b01110, 0b10001, 0b10001, 0b11111, 0b10001, 0b10001, 0b10001}},
    {'C', {0b01111, 0b10000, 0b10000, 0b10000, 0b10000, 0b10000, 0b01111}},
    {'E', {0b11111, 0b10000, 0b10000, 0b11110, 0b10000, 0b10000, 0b11111}},
    {'G', {0b01111, 0b10000, 0b10000, 0b10011, 0b10001, 0b10001, 0b01111}},
    {'I', {0b01110, 0b00100, 0b00100, 0b00100, 0b00100, 0b00100, 0b01110}},
    {'L', {0b10000, 0b10000, 0b10000, 0b10000, 0b10000, 0b10000, 0b11111}},
    {'M', {0b10001, 0b11011, 0b10101, 0b10101, 0b10001, 0b10001, 0b10001}},
    {'N', {0b10001, 0b11001, 0b10101, 0b10011, 0b10001, 0b10001, 0b10001}},
    {'O', {0b01110, 0b10001, 0b10001, 0b10001, 0b10001, 0b10001, 0b01110}},
    {'R', {0b11110, 0b10001, 0b10001, 0b11110, 0b10100, 0b10010, 0b10001}},
    {'S', {0b01111, 0b10000, 0b10000, 0b01110, 0b00001, 0b00001, 0b11110}},
    {'T', {0b11111, 0b00100, 0b00100, 0b00100, 0b00100, 0b00100, 0b00100}},
}};

using Lines = std::array<std::string_view, 2>;

constexpr Lines wordsOf(Notice notice) {
  return notice == Notice::NoSignal ? Lines{"NO", "SIGNAL"} : Lines{"CAMERA", "STARTS"};
}

bool isLit(char letter, int x, int y) {
  const auto* found = std::ranges::find(kLetters, letter, &Letter::letter);
  if (found == kLetters.end() || x >= kLetterWidth || y >= kLetterHeight) return false;
  return (found->rows[static_cast<std::size_t>(y)] >> (kLetterWidth - 1 - x) & 1) != 0;
}

// The words in the middle of the image, in blocks, as large as they fit.
class Text {
 public:
  Text(Notice notice, FrameSize size) : m_lines(wordsOf(notice)) {
    const int columns = size.width / kBlock;
    const int rows = size.height / kBlock;
    const auto longest = std::ranges::max(m_lines, {}, &std::string_view::size).size();
    m_width = static_cast<int>(longest) * kColumnWidth;
    m_height = static_cast<int>(m_lines.size()) * kLineHeight;
    m_scale = std::min(columns / m_width, rows / m_height);
    m_left = (columns - m_width * m_scale) / 2;
    m_top = (rows - m_height * m_scale) / 2;
  }

  bool isLitAt(int column, int row) const {
    if (m_scale == 0 || column < m_left || row < m_top) return false;
    const int x = (column - m_left) / m_scale;
    const int y = (row - m_top) / m_scale;
    if (x >= m_width || y >= m_height) return false;
    const std::string_view line = m_lines[static_cast<std::size_t>(y / kLineHeight)];
    const int indent = (m_width - static_cast<int>(line.size()) * kColumnWidth) / 2;
    const int at = x - indent;
    if (at < 0 || at / kColumnWidth >= static_cast<int>(line.size())) return false;
    return isLit(line[static_cast<std::size_t>(at / kColumnWidth)], at % kColumnWidth,
                 y % kLineHeight);
  }

 private:
  const Lines m_lines;
  int m_width = 0;  // of the words, in squares of a letter
  int m_height = 0;
  int m_scale = 0;  // blocks for each of them
  int m_left = 0;
  int m_top = 0;
};

Bytes rawPlacard(const Text& text, std::uint32_t encoding, FrameSize size) {
  Bytes frame(rawBytes(encoding, size), kGrey);
  const std::size_t stride = rawStride(encoding, size);
  const std::size_t step = encoding == kRawYuy2 ? 2 : 1;
  for (int y = 0; y < size.height; ++y) {
    unsigned char* const row = frame.data() + static_cast<std::size_t>(y) * stride;
    for (int x = 0; x < size.width; ++x) {
      if (text.isLitAt(x / kBlock, y / kBlock)) row[static_cast<std::size_t>(x) * step] = kWhite;
    }
  }
  return frame;
}

void segment(Bytes& jpeg, unsigned char marker, std::initializer_list<unsigned> bytes) {
  const std::size_t length = bytes.size() + 2;
  jpeg.insert(jpeg.end(), {0xFF, marker, static_cast<unsigned char>(length >> 8U),
                           static_cast<unsigned char>(length)});
  for (const unsigned byte : bytes) jpeg.push_back(static_cast<unsigned char>(byte));
}

// Nothing but the means of blocks, of which there are two. A mean is told by its difference to the
// one before: the bit 0 for none, 10 and six bits for the step up or down. "No more of this block"
// is one zero bit.
class Scan {
 public:
  explicit Scan(Bytes& to) : m_to(to) {}
  void brightness(bool isLit) {
    if (isLit == m_wasLit) return none();
    put(0b10, 2);
    put(isLit ? kStep : kStep ^ 0b111111U, 6);
    put(0, 1);
    m_wasLit = isLit;
  }
  void none() { put(0, 2); }
  void finish() {
    while (m_count != 0) put(1, 1);
  }

  static constexpr unsigned kQuantisation = 16;
  // From grey to white. A block's first value is eight times its mean.
  static constexpr unsigned kStep = (kWhite - kGrey) * 8 / kQuantisation;
  static_assert(kStep >> 5U == 1, "takes six bits");

 private:
  void put(unsigned value, int bits) {
    for (int i = bits; i-- > 0;) {
      const unsigned bit = value >> static_cast<unsigned>(i) & 1U;
      m_byte = static_cast<unsigned char>(unsigned{m_byte} << 1U | bit);
      if (++m_count < 8) continue;
      m_to.push_back(m_byte);
      if (m_byte == 0xFF) m_to.push_back(0);  // so that it is not taken for a marker
      m_count = 0;
    }
  }

  Bytes& m_to;
  unsigned char m_byte = 0;
  int m_count = 0;
  bool m_wasLit = false;
};

Bytes jpegPlacard(const Text& text, FrameSize size) {
  const unsigned w = size.width;
  const unsigned h = size.height;
  constexpr std::array<unsigned char, 7> kBegin = {0xFF, 0xD8, 0xFF, 0xDB, 0, 67, 0};
  Bytes jpeg(kBegin.size() + 64, Scan::kQuantisation);
  std::copy(kBegin.begin(), kBegin.end(), jpeg.begin());
  // Three components, the two of colour at half the size each way.
  segment(jpeg, 0xC0,
          {8, h >> 8U, h & 0xFFU, w >> 8U, w & 0xFFU, 3, 1, 0x22, 0, 2, 0x11, 0, 3, 0x11, 0});
  // Means: one code of one bit, for a difference of 0 bits, and one of two, for one of 6 bits.
  segment(jpeg, 0xC4, {0x00, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 6});
  segment(jpeg, 0xC4, {0x10, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0});
  segment(jpeg, 0xDA, {3, 1, 0, 2, 0, 3, 0, 0, 63, 0});
  Scan scan(jpeg);
  const int columns = (size.width + 15) / 16 * 2;
  const int rows = (size.height + 15) / 16 * 2;
  for (int row = 0; row < rows; row += 2) {
    for (int column = 0; column < columns; column += 2) {
      for (const int y : {row, row + 1}) {
        for (const int x : {column, column + 1}) scan.brightness(text.isLitAt(x, y));
      }
      scan.none();  // both colours
      scan.none();
    }
  }
  scan.finish();
  jpeg.insert(jpeg.end(), {0xFF, 0xD9});
  return jpeg;
}

}  // namespace

Bytes placard(Notice notice, std::uint32_t encoding, FrameSize size) {
  const Text text(notice, size);
  return isRaw(encoding) ? rawPlacard(text, encoding, size) : jpegPlacard(text, size);
}

}  // namespace lumsar::agent
