#include "support/plugin/wire.h"

#include <array>
#include <cstdio>

namespace lumsar::test {

Bytes bytesOf(std::string_view text) {
  return {text.begin(), text.end()};
}

Bytes operator+(Bytes left, const Bytes& right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

Bytes le16(std::uint32_t value) {
  return {static_cast<unsigned char>(value), static_cast<unsigned char>(value >> 8U)};
}

Bytes le32(std::uint32_t value) {
  return le16(value) + le16(value >> 16U);
}

std::uint32_t readLe16(const Bytes& bytes, std::size_t offset) {
  return bytes.at(offset) | static_cast<std::uint32_t>(bytes.at(offset + 1)) << 8U;
}

Bytes message(std::uint32_t type, const Bytes& payload, std::uint32_t param) {
  return bytesOf("MACV") + le32(type) + le32(static_cast<std::uint32_t>(payload.size())) +
         le32(param) + Bytes(16) + payload;
}

Bytes message(std::uint32_t type, std::string_view payload, std::uint32_t param) {
  return message(type, bytesOf(payload), param);
}

Bytes message(const VmHello& hello) {
  return bytesOf("MACV") + le32(0) + le32(4) + le32(0) + Bytes{0, 0, hello.major, hello.minor} +
         le32(hello.capabilities) + Bytes(8) + le16(hello.token) + le16(hello.session);
}

Bytes pluginHello(std::uint32_t token, unsigned char capabilities) {
  return Bytes{0x4D, 0x41, 0x43, 0x56,         0, 0, 0, 0, 4, 0, 0, 0, 0, 0, 0, 0, 1,
               1,    0,    0,    capabilities, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0} +
         le16(token) + Bytes{0, 0};
}

Bytes pattern(std::size_t size) {
  Bytes bytes(size);
  for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<unsigned char>(i * 31 + i / 251);
  return bytes;
}

std::string show(const Bytes& bytes) {
  std::string text;
  for (unsigned char byte : bytes) {
    if (byte >= 0x20 && byte < 0x7F && byte != '\\') {
      text += static_cast<char>(byte);
      continue;
    }
    std::array<char, 5> escaped{};
    std::snprintf(escaped.data(), escaped.size(), "\\x%02X", byte);
    text += escaped.data();
  }
  return text;
}

}  // namespace lumsar::test
