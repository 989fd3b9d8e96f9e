// MessageAssembler: deframes a byte stream into complete messages. Used wherever messages arrive in
// fragments: by hosts before Handler, by the guest agent, by both ends of an IPC connection. No
// I/O, no thread: reentrant, each object bound to one thread at a time. Needs C++17; a Span is a
// std::span where there is one.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "lumsar/message.h"
#include "lumsar/span.h"

namespace lumsar {

// No message of this system is larger; a longer `length` is a fault of the sender.
inline constexpr std::uint32_t kMaxPayload = 64U << 20U;

// What an assembler keeps of its memory once a larger message has been delivered.
inline constexpr std::size_t kKeptCapacity = std::size_t{4} << 20U;

// A program may be made of both standards: to its linker these are two classes, as a Span is.
#if __cplusplus >= 202002L
inline namespace std_span {
#else
inline namespace own_span {
#endif

class MessageAssembler {
 public:
  enum class Fault { None, Magic, TooLong };

  explicit MessageAssembler(std::uint32_t maxPayload = kMaxPayload) : m_maxPayload(maxPayload) {}

  // Space for `size` bytes to be read into, valid until the next call of any other member.
  // Follow it by commit() with the number of bytes that really came.
  Span<unsigned char> prepare(std::size_t size) {
    dropDelivered();
    if (m_end + size <= kKeptCapacity) shrink();
    grow(m_end + size);
    return {m_buffer.data() + m_end, size};
  }
  void commit(std::size_t size) { m_end += size; }

  void append(Span<const unsigned char> bytes) {
    if (bytes.empty()) return;
    std::copy(bytes.begin(), bytes.end(), prepare(bytes.size()).begin());
    commit(bytes.size());
  }

  // The next complete message, header first, valid until the next prepare() or append(); empty when
  // more bytes are needed or the stream is at fault.
  Span<unsigned char> next() {
    if (pending() < kHeaderSize || fault() != Fault::None) return {};
    const std::size_t size = kHeaderSize + header().length;
    if (pending() < size) return {};
    Span<unsigned char> message{m_buffer.data() + m_begin, size};
    m_begin += size;
    return message;
  }

  // What is wrong with the bytes at the front, if anything. A fault stays until skipFault().
  Fault fault() const {
    if (!std::equal(front(), front() + std::min(pending(), sizeof(kMagic)), magicBytes())) {
      return Fault::Magic;
    }
    if (pending() >= kHeaderSize && header().length > m_maxPayload) return Fault::TooLong;
    return Fault::None;
  }

  // Drops the byte at fault and all that follow it up to the next possible header. Returns how
  // many bytes were dropped. For streams that may begin with the tail of an old message.
  std::size_t skipFault() {
    const std::size_t before = pending();
    if (before == 0) return 0;
    do {
      ++m_begin;
    } while (pending() > 0 && fault() == Fault::Magic);
    return before - pending();
  }

  // The header at the front, as soon as it is there, right or wrong.
  std::optional<RedirMsgHeader> peek() const {
    if (pending() < kHeaderSize) return std::nullopt;
    return header();
  }

  // All bytes not yet delivered, valid as those of next().
  Span<const unsigned char> waiting() const { return {front(), pending()}; }

  // How many bytes the message at the front still lacks; at least 1. A good size for prepare().
  std::size_t missing() const {
    if (pending() < kHeaderSize || fault() != Fault::None) {
      return pending() < kHeaderSize ? kHeaderSize - pending() : 1;
    }
    const std::size_t size = kHeaderSize + header().length;
    return size > pending() ? size - pending() : 1;
  }

  std::size_t pending() const { return m_end - m_begin; }
  // Bytes of memory that it holds.
  std::size_t capacity() const { return m_buffer.capacity(); }
  void clear() {
    m_begin = m_end = 0;
    shrink();
  }
  // Gives back the memory of a large message that has been dealt with, without waiting for the next
  // bytes to come. What next() returned is no longer valid.
  void trim() {
    dropDelivered();
    if (m_end <= kKeptCapacity) shrink();
  }

 private:
  const unsigned char* front() const { return m_buffer.data() + m_begin; }
  static const unsigned char* magicBytes() {
    return reinterpret_cast<const unsigned char*>(&kMagic);
  }
  RedirMsgHeader header() const { return readHeader(front()); }

  void dropDelivered() {
    if (m_begin == 0) return;
    std::copy(m_buffer.begin() + static_cast<std::ptrdiff_t>(m_begin),
              m_buffer.begin() + static_cast<std::ptrdiff_t>(m_end), m_buffer.begin());
    m_end -= m_begin;
    m_begin = 0;
  }

  // Doubled, as a vector does, but not beyond what is kept as long as that is enough.
  void grow(std::size_t size) {
    const std::size_t capacity = m_buffer.capacity();
    if (size > capacity && size <= kKeptCapacity) {
      m_buffer.reserve(std::min(std::max(size, 2 * capacity), kKeptCapacity));
    }
    if (m_buffer.size() < size) m_buffer.resize(size);
  }

  void shrink() {
    if (m_buffer.capacity() <= kKeptCapacity) return;
    m_buffer.resize(m_end);
    m_buffer.shrink_to_fit();
  }

  std::uint32_t m_maxPayload;
  std::vector<unsigned char> m_buffer;
  std::size_t m_begin = 0;  // first byte not yet delivered
  std::size_t m_end = 0;    // after the last byte received
};

}  // namespace std_span or own_span

// What a sender at fault did; empty for none.
constexpr const char* faultText(MessageAssembler::Fault fault) {
  switch (fault) {
    case MessageAssembler::Fault::Magic:
      return "sent bytes that are not a message";
    case MessageAssembler::Fault::TooLong:
      return "announced a message above the size limit";
    case MessageAssembler::Fault::None:
      break;
  }
  return "";
}

}  // namespace lumsar
