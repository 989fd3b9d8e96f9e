// The little that is read of a JPEG without a codec: whether it is whole, and the segments in front
// of its coded data.
#pragma once

#include <cstddef>
#include <optional>

#include "base/text/bytes.h"

namespace lumsar::protocol {

namespace jpeg {
inline constexpr unsigned kBaselineFrame = 0xC0;
inline constexpr unsigned kExtendedFrame = 0xC1;
inline constexpr unsigned kHuffmanTables = 0xC4;
inline constexpr unsigned kBegin = 0xD8;
inline constexpr unsigned kEnd = 0xD9;
inline constexpr unsigned kScan = 0xDA;
inline constexpr unsigned kQuantisationTables = 0xDB;
}  // namespace jpeg

// True for FF D8 … FF D9.
inline bool isCompleteJpeg(base::Bytes bytes) {
  const std::size_t size = bytes.size();
  return size >= 4 && bytes[0] == 0xFF && bytes[1] == jpeg::kBegin && bytes[size - 2] == 0xFF &&
         bytes[size - 1] == jpeg::kEnd;
}

struct JpegSegment {
  unsigned marker;
  base::Bytes body;  // without data when it is longer than the JPEG
};

class JpegSegments {
 public:
  explicit JpegSegments(base::Bytes jpeg) : m_jpeg(jpeg) {}

  // Nothing where there is no marker. Behind the scan's header there are no segments any more.
  std::optional<JpegSegment> next() {
    if (m_at >= m_jpeg.size() || m_jpeg[m_at] != 0xFF) return std::nullopt;
    while (m_at < m_jpeg.size() && m_jpeg[m_at] == 0xFF) ++m_at;  // any number may fill up
    if (m_at == m_jpeg.size()) return std::nullopt;
    const unsigned marker = m_jpeg[m_at++];
    return JpegSegment{marker, nextBody()};
  }
  // Of what has not been read.
  std::size_t position() const { return m_at; }

 private:
  base::Bytes nextBody() {
    if (m_jpeg.size() - m_at < 2) return {};
    const std::size_t length = std::size_t{m_jpeg[m_at]} << 8U | m_jpeg[m_at + 1];
    if (length < 2 || length > m_jpeg.size() - m_at) return {};
    const base::Bytes body = m_jpeg.subspan(m_at + 2, length - 2);
    m_at += length;
    return body;
  }

  base::Bytes m_jpeg;
  std::size_t m_at = 2;
};

}  // namespace lumsar::protocol
