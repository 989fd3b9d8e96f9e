// A message in the one buffer that is sent: allocated once, its payload written once.
#pragma once

#include <cstring>
#include <initializer_list>
#include <memory>
#include <span>

#include "base/text/bytes.h"
#include "lumsar/message.h"

namespace lumsar::protocol {

using base::Bytes;
using base::bytesOf;

// Bytes that somebody else holds, for as long as `owner` is held.
struct SharedBytes {
  Bytes bytes;
  std::shared_ptr<const void> owner;
};

class Message {
 public:
  // Header filled, payload uninitialised, for the caller to write.
  explicit Message(std::uint32_t type, std::size_t payloadSize = 0, std::uint32_t param = 0)
      : m_size(kHeaderSize + payloadSize),
        m_data(std::make_unique_for_overwrite<unsigned char[]>(m_size)) {
    RedirMsgHeader header;
    header.type = type;
    header.length = static_cast<std::uint32_t>(payloadSize);
    header.param = param;
    setHeader(header);
  }
  // The payload's parts, one after another.
  Message(std::uint32_t type, std::initializer_list<Bytes> parts, std::uint32_t param = 0)
      : Message(type, sizeOf(parts), param) {
    unsigned char* place = m_data.get() + kHeaderSize;
    for (const Bytes part : parts) place = std::copy(part.begin(), part.end(), place);
  }

  Bytes bytes() const { return {m_data.get(), m_size}; }
  std::span<unsigned char> bytes() { return {m_data.get(), m_size}; }
  std::span<unsigned char> payload() { return bytes().subspan(kHeaderSize); }
  std::size_t size() const { return m_size; }

  // Its header counts `size` more bytes, which are sent behind it.
  void announceRest(std::size_t size) {
    RedirMsgHeader all = header();
    all.length += static_cast<std::uint32_t>(size);
    setHeader(all);
  }
  RedirMsgHeader header() const { return readHeader(m_data.get()); }
  void setHeader(const RedirMsgHeader& header) { std::memcpy(m_data.get(), &header, kHeaderSize); }

 private:
  static std::size_t sizeOf(std::initializer_list<Bytes> parts) {
    std::size_t size = 0;
    for (const Bytes part : parts) size += part.size();
    return size;
  }

  std::size_t m_size;
  std::unique_ptr<unsigned char[]> m_data;
};

}  // namespace lumsar::protocol
