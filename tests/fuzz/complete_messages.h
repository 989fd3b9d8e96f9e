// The complete messages at the front of a stream, up to its first fault: what a reader of the
// stream must deliver, however the stream is cut.
#pragma once

#include <cstring>
#include <vector>

#include "lumsar/assembler.h"

namespace lumsar::fuzz {

using Messages = std::vector<std::vector<unsigned char>>;

inline Messages completeMessages(std::span<const unsigned char> stream) {
  Messages messages;
  while (stream.size() >= kHeaderSize) {
    const RedirMsgHeader header = readHeader(stream.data());
    if (header.magic != kMagic || header.length > kMaxPayload) break;
    const std::size_t size = kHeaderSize + header.length;
    if (stream.size() < size) break;
    const auto message = stream.first(size);
    messages.emplace_back(message.begin(), message.end());
    stream = stream.subspan(size);
  }
  return messages;
}

}  // namespace lumsar::fuzz
