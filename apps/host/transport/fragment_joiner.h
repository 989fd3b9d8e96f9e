// FragmentJoiner: joins the fragments that the plug-in passes on into complete messages. The
// fragments of one message come from one thread; another thread's may come in between.
#pragma once

#include <algorithm>
#include <map>
#include <optional>
#include <span>
#include <thread>
#include <vector>

#include "lumsar/assembler.h"

namespace lumsar::host {

class FragmentJoiner {
 public:
  using Bytes = std::vector<unsigned char>;

  // The message that is complete with this fragment, if it is; also bytes that cannot be a message.
  std::optional<Bytes> add(std::span<const unsigned char> fragment) {
    Partial& partial = m_partial[std::this_thread::get_id()];
    Bytes& bytes = partial.bytes;
    if (bytes.empty() && fragment.size() >= kHeaderSize) bytes.reserve(messageSize(fragment));
    bytes.insert(bytes.end(), fragment.begin(), fragment.end());
    if (bytes.size() < kHeaderSize) return std::nullopt;
    if (isValid(bytes) && bytes.size() < messageSize(bytes)) return std::nullopt;
    Partial done = std::move(m_partial.extract(std::this_thread::get_id()).mapped());
    if (done.discarded) return std::nullopt;
    return std::move(done.bytes);
  }

  static bool isValid(std::span<const unsigned char> message) {
    const RedirMsgHeader header = readHeader(message.data());
    return header.magic == kMagic && header.length <= kMaxPayload;
  }

  // Whether the fragment is a complete message by itself.
  bool isWhole(std::span<const unsigned char> fragment) const {
    return fragment.size() >= kHeaderSize && isValid(fragment) &&
           fragment.size() == messageSize(fragment) &&
           !m_partial.contains(std::this_thread::get_id());
  }

  // What has begun is dropped once it is complete.
  void discard() {
    for (auto& [thread, partial] : m_partial) partial.discarded = true;
  }

 private:
  struct Partial {
    Bytes bytes;
    bool discarded = false;
  };

  static std::size_t messageSize(std::span<const unsigned char> bytes) {
    return kHeaderSize + std::min(readHeader(bytes.data()).length, kMaxPayload);
  }

  std::map<std::thread::id, Partial> m_partial;
};

}  // namespace lumsar::host
