#include "decode/frame_decoder.h"

namespace lumsar::agent {
namespace {

constexpr std::size_t kReadAhead = 64;  // of libswscale, after an image

video::Image imageOf(FrameSize size, std::span<const unsigned char> i420) {
  const int columns = (size.width + 1) / 2;
  const unsigned char* const colours = i420.data() + std::size_t{size.width} * size.height;
  const std::size_t colourBytes = (i420Bytes(size) - std::size_t{size.width} * size.height) / 2;
  return {{AV_PIX_FMT_YUV420P, size.width, size.height, true},
          {i420.data(), colours, colours + colourBytes, nullptr},
          {size.width, columns, columns, 0}};
}

}  // namespace

DecodeResult FrameDecoder::decode(const DecodeRequest& request, base::Bytes memory,
                                  std::span<unsigned char> to) {
  if (request.bytes > memory.size()) return DecodeResult::Damaged;
  const base::Bytes encoded = memory.first(request.bytes);
  if (request.encoding == kEncodingMjpg) {
    return decodeJpeg(encoded, {request.width, request.height}, to);
  }
  if (request.encoding != kEncodingH264) return DecodeResult::Damaged;
  return decodeH264(encoded, (request.flags & kFrameIsKey) != 0, to);
}

DecodeResult FrameDecoder::decodeJpeg(base::Bytes jpeg, FrameSize size,
                                      std::span<unsigned char> to) {
  using enum DecodeResult;
  if (m_format == RawFormat{kRawI420, size, true}) {
    return m_jpeg.decode(jpeg, size, to) ? Decoded : Damaged;
  }
  if (!isDecodable(size)) return Damaged;
  m_planes.resize(i420Bytes(size) + kReadAhead);
  if (!m_jpeg.decode(jpeg, size, m_planes)) return Damaged;
  return m_scaler.scale(imageOf(size, m_planes), to) ? Decoded : Damaged;
}

DecodeResult FrameDecoder::decodeH264(base::Bytes unit, bool isKey, std::span<unsigned char> to) {
  using enum DecodeResult;
  if (!m_h264) m_h264.emplace(m_hardware);
  const DecodeResult result = m_h264->decode(unit, isKey);
  if (result != Decoded) return result;
  return m_scaler.scale(video::imageOf(m_h264->frame()), to) ? Decoded : Damaged;
}

}  // namespace lumsar::agent
