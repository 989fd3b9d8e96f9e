// FrameDecoder: encoded frames of one camera as raw ones of one format, whatever the size and
// encoding of each. The aspect ratio is kept; the rest of the image is black. Not thread-safe.
#pragma once

#include <optional>
#include <span>
#include <utility>
#include <vector>

#include "decode/decoder_messages.h"
#include "decode/jpeg_decoder.h"
#include "decode/scaler.h"
#include "video/h264_decoder.h"

namespace lumsar::agent {

class FrameDecoder {
 public:
  explicit FrameDecoder(const RawFormat& format, video::Hardware hardware = {})
      : m_format(format), m_scaler(format), m_hardware(std::move(hardware)) {}

  // The encoded frame is at the beginning of `memory`; `to` has to hold rawBytes() of the format.
  // Throws base::Failure and std::bad_alloc.
  DecodeResult decode(const DecodeRequest& request, base::Bytes memory,
                      std::span<unsigned char> to);

 private:
  DecodeResult decodeJpeg(base::Bytes jpeg, FrameSize size, std::span<unsigned char> to);
  DecodeResult decodeH264(base::Bytes unit, bool isKey, std::span<unsigned char> to);

  const RawFormat m_format;
  Scaler m_scaler;
  const video::Hardware m_hardware;
  JpegDecoder m_jpeg;
  std::vector<unsigned char> m_planes;       // of a JPEG that has to be converted
  std::optional<video::H264Decoder> m_h264;  // once there was such a frame
};

}  // namespace lumsar::agent
