// The handshake: a HELLO with a token, and the guest agent's answer with the same token.
#pragma once

#include <optional>

#include "protocol/message.h"

namespace lumsar::protocol {

std::uint16_t newToken();

// What begins a handshake.
Message helloMessage(std::uint16_t token);

// Who answers it.
struct HelloAnswer {
  std::uint8_t vmMajor = kProtocolMajor;
  std::uint8_t vmMinor = kProtocolMinor;
  bool shareAll = false;
  HelloPayload payload = {};
};
Message answerMessage(const RedirMsgHeader& hello, const HelloAnswer& answer);

// Nothing when the complete message is not a HELLO or lacks its payload.
std::optional<HelloMessage> readHello(Bytes message);

}  // namespace lumsar::protocol
