// What the fuzzers share: taking an input apart, and ending the process when something does not
// hold.
#pragma once

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <span>
#include <string_view>

namespace lumsar::fuzz {

using Bytes = std::span<const unsigned char>;

inline void require(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "does not hold: %s\n", what);
  std::abort();
}

class Input {
 public:
  Input(const unsigned char* data, std::size_t size) : m_rest(data, size) {}

  bool empty() const { return m_rest.empty(); }
  // 0 at the end.
  unsigned char byte() {
    const Bytes one = take(1);
    return one.empty() ? 0 : one[0];
  }
  // Of two bytes, the low one first.
  std::size_t word() {
    const std::size_t low = byte();
    return low + (std::size_t{byte()} << 8U);
  }
  // As many bytes as the next two say, or as there are.
  Bytes piece() { return take(word()); }
  Bytes rest() { return take(m_rest.size()); }
  Bytes take(std::size_t size) {
    const Bytes front = m_rest.first(std::min(size, m_rest.size()));
    m_rest = m_rest.subspan(front.size());
    return front;
  }

 private:
  Bytes m_rest;
};

}  // namespace lumsar::fuzz
