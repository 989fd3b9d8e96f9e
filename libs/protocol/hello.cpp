#include "protocol/hello.h"

#include <random>

namespace lumsar::protocol {

std::uint16_t newToken() {
  std::random_device source;
  return static_cast<std::uint16_t>(source());
}

Message helloMessage(std::uint16_t token) {
  const HelloPayload payload{token, 0};
  Message hello(MSG_HELLO, {bytesOf(payload)});
  RedirMsgHeader header = hello.header();
  header.clientMajor = kProtocolMajor;
  header.clientMinor = kProtocolMinor;
  header.capabilities = CAP_BASE_1 | CAP_BASE_2;
  hello.setHeader(header);
  return hello;
}

Message answerMessage(const RedirMsgHeader& hello, const HelloAnswer& answer) {
  Message message(MSG_HELLO, {bytesOf(answer.payload)});
  RedirMsgHeader header = message.header();
  header.clientMajor = hello.clientMajor;
  header.clientMinor = hello.clientMinor;
  header.vmMajor = answer.vmMajor;
  header.vmMinor = answer.vmMinor;
  header.capabilities = CAP_BASE_1 | CAP_BASE_2;
  if (answer.shareAll) header.capabilities |= CAP_SHARE_ALL;
  message.setHeader(header);
  return message;
}

std::optional<HelloMessage> readHello(Bytes message) {
  HelloMessage hello;
  if (message.size() < sizeof hello || readHeader(message.data()).type != MSG_HELLO) return {};
  std::memcpy(&hello, message.data(), sizeof hello);
  return hello;
}

}  // namespace lumsar::protocol
