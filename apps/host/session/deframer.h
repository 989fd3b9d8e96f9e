// Deframer: deframes the VM's byte stream and resynchronises it after an error.
#pragma once

#include <span>
#include <utility>

#include "lumsar/assembler.h"

namespace lumsar::host {

// A new channel may begin with the tail of an old message, and that tail with something like a
// header: until a message has come that begins a handshake, all others are dropped.
class Deframer {
 public:
  // A channel has been opened.
  void reset() { *this = {}; }
  void append(std::span<const unsigned char> bytes) { m_assembler.append(bytes); }

  // The next complete message, valid until the next call; empty when more bytes are needed.
  std::span<unsigned char> next();

  // How much memory it holds.
  std::size_t capacity() const { return m_assembler.capacity(); }

  // How many bytes have been dropped since the last call because they were not a message.
  std::size_t takeDropped() { return std::exchange(m_dropped, 0); }

 private:
  bool isProbe() const;

  MessageAssembler m_assembler;
  bool m_synchronised = false;
  std::size_t m_dropped = 0;
};

}  // namespace lumsar::host
