// Views of bytes, such as those of a text or of a struct that goes onto the wire.
#pragma once

#include <cstring>
#include <span>
#include <string_view>
#include <type_traits>

namespace lumsar::base {

using Bytes = std::span<const unsigned char>;

inline Bytes bytesOf(std::string_view text) {
  return {reinterpret_cast<const unsigned char*>(text.data()), text.size()};
}

inline std::string_view textOf(Bytes bytes) {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

template <class Fields>
requires(std::is_trivially_copyable_v<Fields> &&
         !std::is_convertible_v<Fields, std::string_view>) Bytes bytesOf(const Fields& fields) {
  return {reinterpret_cast<const unsigned char*>(&fields), sizeof fields};
}

// To where there are as many bytes, and none of `from`. Of std::ranges::copy gcc 12 makes a loop
// byte by byte at -O2, thirty times as slow.
inline void copyBytes(Bytes from, unsigned char* to) {
  if (!from.empty()) std::memcpy(to, from.data(), from.size());
}

}  // namespace lumsar::base
