#include "formats/jpeg_header.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <numeric>

#include "protocol/jpeg_segments.h"

namespace lumsar::service {
namespace {

using base::Bytes;
namespace jpeg = protocol::jpeg;

constexpr std::size_t kTableValues = 64;
constexpr std::size_t kMaxTables = 4;
constexpr int kMaxSegments = 256;  // a camera's frame has some ten

// The brightness table of the standard's annex K, from which libjpeg and most cameras derive
// theirs.
constexpr std::array<int, kTableValues> kStandardTable = {
    16, 11, 10, 16, 24,  40,  51,  61,  12, 12, 14, 19, 26,  58,  60,  55,
    14, 13, 16, 24, 40,  57,  69,  56,  14, 17, 22, 29, 51,  87,  80,  62,
    18, 22, 37, 56, 68,  109, 103, 77,  24, 35, 55, 64, 81,  104, 113, 92,
    49, 64, 78, 87, 103, 121, 120, 101, 72, 92, 95, 98, 112, 100, 103, 99};

constexpr int tableSum(int quality) {
  const int scale = quality < 50 ? 5000 / quality : 200 - 2 * quality;
  int sum = 0;
  for (const int value : kStandardTable) sum += std::clamp((value * scale + 50) / 100, 1, 255);
  return sum;
}

constexpr auto kTableSums = [] {
  std::array<int, 100> sums{};
  for (int i = 0; i < 100; ++i) sums[static_cast<std::size_t>(i)] = tableSum(i + 1);
  return sums;
}();

int qualityOf(int sum) {
  const auto nearest =
      std::ranges::min_element(kTableSums, {}, [sum](int other) { return std::abs(sum - other); });
  return static_cast<int>(nearest - kTableSums.begin()) + 1;
}

int word(Bytes bytes, std::size_t at) {
  return bytes[at] << 8 | bytes[at + 1];
}

bool isFrameHeader(unsigned marker) {
  return marker >= 0xC0 && marker <= 0xCF && marker != 0xC4 && marker != 0xC8 && marker != 0xCC;
}

// Goes through the segments up to the scan; what it finds goes into the header.
class Reader {
 public:
  explicit Reader(Bytes frame) : m_frame(frame), m_segments(frame) {}

  JpegHeader read() {
    if (m_frame.size() < 4 || m_frame[0] != 0xFF || m_frame[1] != jpeg::kBegin) {
      return damaged("does not begin as a JPEG");
    }
    for (int i = 0; i < kMaxSegments; ++i) {
      const auto segment = m_segments.next();
      if (!segment) return damaged("has a segment without a marker");
      if (segment->body.data() == nullptr) {
        return damaged("has a segment that is longer than the frame");
      }
      if (segment->marker == jpeg::kScan) return atScan();
      if (!readSegment(segment->marker, segment->body)) return m_header;
    }
    return damaged("has too many segments");
  }

 private:
  JpegHeader damaged(const char* why) {
    m_header.state = JpegHeader::State::Damaged;
    m_header.fault = why;
    return m_header;
  }

  // False when the frame is damaged.
  bool readSegment(unsigned marker, Bytes body) {
    if (marker == jpeg::kQuantisationTables) return readTables(body);
    if (marker == jpeg::kHuffmanTables) m_hasHuffmanTables = true;
    if (isFrameHeader(marker)) return readFrameHeader(marker, body);
    return true;
  }

  bool readTables(Bytes body) {
    while (!body.empty()) {
      const std::size_t number = body[0] & 0x0FU;
      const std::size_t width = body[0] >> 4U == 0 ? 1 : 2;
      body = body.subspan(1);
      if (number >= kMaxTables || body.size() < kTableValues * width) {
        damaged("has a quantisation table that is not a valid one");
        return false;
      }
      int sum = 0;
      bool zero = false;
      for (std::size_t i = 0; i < kTableValues; ++i) {
        const int value = width == 1 ? body[i] : word(body, 2 * i);
        sum += value;
        zero = zero || value == 0;
      }
      if (zero) {
        damaged("has a quantisation table with zeros");
        return false;
      }
      m_sums[number] = sum;
      m_isWide = m_isWide || width == 2;
      body = body.subspan(kTableValues * width);
    }
    return true;
  }

  bool readFrameHeader(unsigned marker, Bytes body) {
    constexpr std::size_t kFixed = 6;
    const std::size_t components = body.size() < kFixed ? 0 : body[5];
    if (m_components != 0 || components == 0 || body.size() < kFixed + 3 * components) {
      damaged("has a frame header that is not a valid one");
      return false;
    }
    m_components = components;
    m_isBaseline = marker == jpeg::kBaselineFrame && body[0] == 8;
    m_header.height = word(body, 1);
    m_header.width = word(body, 3);
    for (std::size_t i = 0; i < components; ++i) {
      const std::size_t table = body[kFixed + 3 * i + 2];
      if (table >= kMaxTables) {
        damaged("refers to a quantisation table that is not there");
        return false;
      }
      m_tables[std::min(i, kMaxTables - 1)] = table;
    }
    return true;
  }

  JpegHeader atScan() {
    if (m_components == 0) return damaged("has no frame header");
    const std::span used(m_tables.data(), std::min(m_components, kMaxTables));
    if (std::ranges::any_of(used, [&](std::size_t table) { return m_sums[table] == 0; })) {
      return damaged("lacks quantisation tables");
    }
    m_header.quality = qualityOf(m_sums[m_tables[0]]);
    m_header.size = endOfImage();
    if (m_header.size == 0) return damaged("is cut off");
    m_header.fault = unusual();
    m_header.state =
        *m_header.fault == '\0' ? JpegHeader::State::Plain : JpegHeader::State::Unusual;
    return m_header;
  }

  // 0 when the end marker is missing.
  std::size_t endOfImage() const {
    std::size_t size = m_frame.size();
    const std::size_t scan = m_segments.position();
    while (size > scan && (m_frame[size - 1] == 0 || m_frame[size - 1] == 0xFF)) --size;
    const bool ends =
        size >= scan + 2 && m_frame[size - 2] == 0xFF && m_frame[size - 1] == jpeg::kEnd;
    return ends ? size : 0;
  }

  const char* unusual() const {
    if (m_components != 1 && m_components != 3) return "is neither grey nor YUV";
    if (!m_isBaseline || m_isWide) return "is not a baseline JPEG";
    if (!m_hasHuffmanTables) return "lacks Huffman tables";
    return "";
  }

  const Bytes m_frame;
  protocol::JpegSegments m_segments;
  JpegHeader m_header;
  std::array<int, kMaxTables> m_sums{};            // of the quantisation tables; 0 for none
  std::array<std::size_t, kMaxTables> m_tables{};  // of the components
  std::size_t m_components = 0;
  bool m_isBaseline = false;
  bool m_isWide = false;
  bool m_hasHuffmanTables = false;
};

}  // namespace

JpegHeader readJpegHeader(Bytes frame) {
  return Reader(frame).read();
}

}  // namespace lumsar::service
