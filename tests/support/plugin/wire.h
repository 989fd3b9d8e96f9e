// Bytes of messages, written out by hand and not with the plug-in's own headers, so that a mistake
// in those shows.
// show() turns bytes into text without loss, for comparisons that can be read.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace lumsar::test {

using Bytes = std::vector<unsigned char>;

Bytes bytesOf(std::string_view text);
Bytes operator+(Bytes left, const Bytes& right);
Bytes le16(std::uint32_t value);
Bytes le32(std::uint32_t value);
std::uint32_t readLe16(const Bytes& bytes, std::size_t offset);

// One message: magic, type, the payload's length, param, sixteen zero bytes, payload.
Bytes message(std::uint32_t type, const Bytes& payload = {}, std::uint32_t param = 0);
Bytes message(std::uint32_t type, std::string_view payload, std::uint32_t param = 0);

// A HELLO as the VM answers it.
struct VmHello {
  std::uint32_t token = 0;
  std::uint32_t session = 0;
  unsigned char major = 1;
  unsigned char minor = 0;
  std::uint32_t capabilities = 0;
};
Bytes message(const VmHello& hello);

// The plug-in's HELLO.
Bytes pluginHello(std::uint32_t token, unsigned char capabilities);

// `size` bytes in a pattern that does not repeat every 256.
Bytes pattern(std::size_t size);

// Printable characters as they are, all other bytes and the backslash as \xNN.
std::string show(const Bytes& bytes);

}  // namespace lumsar::test
