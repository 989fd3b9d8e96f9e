// What lumsar-decoder is asked for: requests of any kind, length and size, and any frames in the
// memory that it shares with the agent. Nothing but the raw frame is written to.
//
// Input: the raw frames' format, then requests as they cross the socket, each with the memory,
// whose length comes first.
#include "decode/frame_decoder.h"

#include <cstring>
#include <vector>

#include "fuzz/raw_frame.h"

namespace {

using namespace lumsar::agent;
using lumsar::fuzz::require;

constexpr int kMostRequests = 20;  // above that only the time differs

DecodeRequest request(lumsar::fuzz::Bytes bytes) {
  DecodeRequest request;
  if (!bytes.empty()) std::memcpy(&request, bytes.data(), bytes.size());
  return request;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  lumsar::fuzz::Input input(data, size);
  const RawFormat format = lumsar::fuzz::rawFormat(input);
  FrameDecoder decoder(format);
  lumsar::fuzz::RawFrame to(format);
  for (int i = 0; i < kMostRequests && !input.empty(); ++i) {
    const DecodeRequest asked = request(input.take(sizeof(DecodeRequest)));
    const auto piece = input.piece();
    // Nothing is behind it that could be read.
    const std::vector<unsigned char> memory(piece.begin(), piece.end());
    const DecodeResult result = decoder.decode(asked, memory, to.bytes());
    require(asked.bytes <= memory.size() || result == DecodeResult::Damaged,
            "a frame is within the memory");
    to.requireNothingBehind();
  }
  return 0;
}
