// The HELLO that begins the handshake with the VM, the same for both kinds of host but for its
// capability bits.
#pragma once

#include "lumsar/message.h"

inline lumsar::HelloMessage makeHello(std::uint32_t capabilities, std::uint16_t token) {
  lumsar::HelloMessage hello;
  hello.header.type = lumsar::MSG_HELLO;
  hello.header.length = sizeof hello.payload;
  hello.header.clientMajor = lumsar::kProtocolMajor;
  hello.header.clientMinor = lumsar::kProtocolMinor;
  hello.header.capabilities = capabilities;
  hello.payload.token = token;
  return hello;
}

inline unsigned char* bytesOf(lumsar::HelloMessage& hello) {
  return reinterpret_cast<unsigned char*>(&hello);
}
