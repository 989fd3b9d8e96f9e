// What a host sends to the VM's side, built byte by byte as strangers do.
// Used by the tests of lumsar-agent. No state.
#ifndef LUMSAR_TESTS_UNIT_AGENT_WIRE_H
#define LUMSAR_TESTS_UNIT_AGENT_WIRE_H

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

#include "protocol/camera_record.h"

namespace lumsar::agent::test {

using protocol::Bytes;
using protocol::bytesOf;
using Message = std::vector<unsigned char>;

inline void add(Message& to, Bytes bytes) {
  to.insert(to.end(), bytes.begin(), bytes.end());
}
inline Message join(std::initializer_list<Message> parts) {
  Message all;
  for (const auto& part : parts) add(all, part);
  return all;
}
inline Message bytes(std::string_view text) {
  return {text.begin(), text.end()};
}

inline Message message(std::uint32_t type, Bytes payload) {
  RedirMsgHeader header;
  header.type = type;
  header.length = static_cast<std::uint32_t>(payload.size());
  Message whole;
  add(whole, bytesOf(header));
  add(whole, payload);
  return whole;
}

inline Message hello(std::uint16_t token, std::uint32_t capabilities = 0x03) {
  HelloMessage hello;
  hello.header.length = 4;
  hello.header.clientMajor = 1;
  hello.header.clientMinor = 1;
  hello.header.capabilities = capabilities;
  hello.payload.token = token;
  Message whole;
  add(whole, bytesOf(hello));
  return whole;
}

inline Message record(CameraDataKind kind, std::uint32_t camera, Bytes body = {},
                      std::uint64_t time = 0) {
  const CameraDataHeader header{static_cast<std::uint16_t>(kind), 0, camera, time};
  Message whole;
  add(whole, bytesOf(header));
  add(whole, body);
  return whole;
}

inline Message announcedBody(std::string_view id, std::string_view name,
                             std::uint32_t encoding = kEncodingMjpg, std::uint16_t width = 640,
                             std::uint16_t height = 480) {
  CameraAnnounced fields;
  fields.width = width;
  fields.height = height;
  fields.frameInterval = 33333;
  fields.encoding = encoding;
  fields.idLength = static_cast<std::uint16_t>(id.size());
  fields.nameLength = static_cast<std::uint16_t>(name.size());
  Message body;
  add(body, bytesOf(fields));
  add(body, bytes(id));
  add(body, bytes(name));
  return body;
}

inline Message frameBody(std::uint32_t sequence, Bytes picture,
                         std::uint32_t encoding = kEncodingMjpg, std::uint32_t flags = kFrameIsKey,
                         std::uint16_t width = 640, std::uint16_t height = 480) {
  const CameraFrame fields{sequence, width, height, encoding, flags};
  Message body;
  add(body, bytesOf(fields));
  add(body, picture);
  return body;
}

// What counts as a picture, though it shows nothing.
inline Message picture(std::size_t size = 1000, unsigned char filling = 0x55) {
  Message jpeg(size, filling);
  jpeg[0] = 0xFF;
  jpeg[1] = 0xD8;
  jpeg[size - 2] = 0xFF;
  jpeg[size - 1] = 0xD9;
  return jpeg;
}

inline Message announce(std::uint32_t camera, std::string_view name) {
  return message(MSG_DATA, record(CameraDataKind::Announced, camera,
                                  announcedBody("id-" + std::to_string(camera), name)));
}
inline Message gone(std::uint32_t camera, std::string_view why = {}) {
  return message(MSG_DATA, record(CameraDataKind::Removed, camera, bytes(why)));
}
inline Message frame(std::uint32_t camera, std::uint32_t sequence, Bytes picture) {
  return message(
      MSG_DATA, record(CameraDataKind::Frame, camera, frameBody(sequence, picture), cameraClock()));
}

// The kind of the record in a whole message, 0 if there is none.
inline CameraDataKind kindOf(Bytes whole) {
  if (whole.size() < kHeaderSize + sizeof(CameraDataHeader)) return CameraDataKind{};
  Bytes rest = whole.subspan(kHeaderSize);
  return static_cast<CameraDataKind>(take<CameraDataHeader>(rest)->kind);
}

}  // namespace lumsar::agent::test

#endif
