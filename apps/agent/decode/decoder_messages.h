// What lumsar-agent and lumsar-decoder, which runs in a sandbox, say to each other over a socket.
// Frames are in two pieces of memory that both have: an encoded one from the agent, a raw one back.
//
//   agent --DecodeRequest--> decoder, which reads the encoded frame
//         <--DecodeReply---           and has written the raw one
//
// There is one request at a time.
#pragma once

#include <cstddef>
#include <cstdint>

#include "video/decode_result.h"

namespace lumsar::agent {

using video::DecodeResult;

// The descriptors with which lumsar-decoder is started.
inline constexpr int kDecoderSocket = 3;
inline constexpr int kDecoderEncoded = 4;
inline constexpr int kDecoderRaw = 5;

// Its last argument, where it may use hardware.
inline constexpr const char* kUseHardware = "hardware";

// Larger frames are not decoded.
inline constexpr std::size_t kMaxEncodedBytes = std::size_t{16} << 20U;

struct DecodeRequest {
  std::uint32_t encoding = 0;  // as in CameraFrame
  std::uint16_t width = 0;
  std::uint16_t height = 0;
  std::uint32_t flags = 0;
  std::uint32_t bytes = 0;
};

struct DecodeReply {
  DecodeResult result = DecodeResult::Damaged;
  std::uint32_t hasHardware = 0;  // which H.264 is decoded by
};

}  // namespace lumsar::agent
