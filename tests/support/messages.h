// Messages and camera records as tests make and take them apart.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "lumsar/camera_data.h"
#include "lumsar/ipc_transport.h"

namespace lumsar::test {

using Bytes = std::vector<unsigned char>;
using View = std::span<const unsigned char>;

inline Bytes bytesOf(std::string_view text) {
  return {text.begin(), text.end()};
}
template <class Fields>
requires(std::is_trivially_copyable_v<Fields> &&
         !std::is_convertible_v<Fields, std::string_view>) Bytes bytesOf(const Fields& fields) {
  const auto* first = reinterpret_cast<const unsigned char*>(&fields);
  return {first, first + sizeof fields};
}
inline Bytes join(std::initializer_list<View> parts) {
  Bytes all;
  for (const View part : parts) all.insert(all.end(), part.begin(), part.end());
  return all;
}
inline std::string textOf(View bytes) {
  return {bytes.begin(), bytes.end()};
}

// `fields` with the length of `payload`.
inline Bytes message(RedirMsgHeader fields, View payload) {
  fields.length = static_cast<std::uint32_t>(payload.size());
  return join({bytesOf(fields), payload});
}
inline Bytes message(std::uint32_t type, View payload = {}, std::uint32_t param = 0) {
  return message(RedirMsgHeader{.type = type, .param = param}, payload);
}
inline Bytes message(std::uint32_t type, std::string_view payload) {
  return message(type, bytesOf(payload));
}
// A synchronous call, or its answer.
inline Bytes callMessage(std::uint32_t type, std::string_view payload, std::uint64_t number) {
  RedirMsgHeader header{.type = type};
  setCallNumber(header, number);
  return message(header, bytesOf(payload));
}

// A host's HELLO, and a guest agent's answer to it.
inline Bytes hello(std::uint16_t token, std::uint32_t capabilities = CAP_BASE_1 | CAP_BASE_2) {
  return message({.type = MSG_HELLO,
                  .clientMajor = kProtocolMajor,
                  .clientMinor = kProtocolMinor,
                  .capabilities = capabilities},
                 bytesOf(HelloPayload{.token = token}));
}
inline Bytes helloAnswer(HelloPayload payload, std::uint32_t capabilities = 0) {
  return message({.type = MSG_HELLO,
                  .vmMajor = kProtocolMajor,
                  .vmMinor = kProtocolMinor,
                  .capabilities = capabilities},
                 bytesOf(payload));
}

inline RedirMsgHeader headerOf(View bytes) {
  return take<RedirMsgHeader>(bytes).value_or(RedirMsgHeader{.magic = 0});
}
inline Bytes payloadOf(View bytes) {
  const View payload = bytes.subspan(kHeaderSize);
  return {payload.begin(), payload.end()};
}

// One camera record, which is the payload of a data message.
inline Bytes record(CameraDataKind kind, std::uint32_t camera, View body = {},
                    std::uint64_t time = 0) {
  return join({bytesOf(CameraDataHeader{static_cast<std::uint16_t>(kind), 0, camera, time}), body});
}
inline Bytes announcedBody(std::string_view id, std::string_view name,
                           std::uint32_t encoding = kEncodingMjpg, std::uint16_t width = 640,
                           std::uint16_t height = 480) {
  const CameraAnnounced fields{.width = width,
                               .height = height,
                               .frameInterval = 33333,
                               .encoding = encoding,
                               .idLength = static_cast<std::uint16_t>(id.size()),
                               .nameLength = static_cast<std::uint16_t>(name.size())};
  return join({bytesOf(fields), bytesOf(id), bytesOf(name)});
}
inline Bytes frameBody(std::uint32_t sequence, View jpeg, std::uint32_t encoding = kEncodingMjpg,
                       std::uint32_t flags = kFrameIsKey, std::uint16_t width = 640,
                       std::uint16_t height = 480) {
  return join({bytesOf(CameraFrame{sequence, width, height, encoding, flags}), jpeg});
}

inline Bytes announce(std::uint32_t camera, std::string_view name) {
  const Bytes body = announcedBody("id-" + std::to_string(camera), name);
  return message(MSG_DATA, record(CameraDataKind::Announced, camera, body));
}
inline Bytes removed(std::uint32_t camera, std::string_view why = {}) {
  return message(MSG_DATA, record(CameraDataKind::Removed, camera, bytesOf(why)));
}
inline Bytes frame(std::uint32_t camera, std::uint32_t sequence, View jpeg) {
  return message(MSG_DATA,
                 record(CameraDataKind::Frame, camera, frameBody(sequence, jpeg), cameraClock()));
}

// The kind of the record in a complete message, 0 if there is none.
inline CameraDataKind kindOf(View message) {
  if (message.size() < kHeaderSize + sizeof(CameraDataHeader)) return CameraDataKind{};
  message = message.subspan(kHeaderSize);
  return static_cast<CameraDataKind>(take<CameraDataHeader>(message)->kind);
}

// What counts as a frame's JPEG, though it shows nothing.
inline Bytes blankJpeg(std::size_t size = 1000, unsigned char filling = 0x55) {
  Bytes jpeg(size, filling);
  jpeg[0] = jpeg[size - 2] = 0xFF;
  jpeg[1] = 0xD8;
  jpeg[size - 1] = 0xD9;
  return jpeg;
}

// `size` bytes that look like nothing in particular, other ones for each seed.
inline Bytes noise(std::size_t size, std::uint32_t seed) {
  Bytes bytes(size);
  std::uint32_t state = seed * 2654435761U + 12345;
  for (unsigned char& byte : bytes) {
    state = state * 1664525U + 1013904223U;
    byte = static_cast<unsigned char>(state >> 24U);
  }
  if (size > 0) bytes[0] = 0xEE;  // not the number of any kind of record
  return bytes;
}

// FNV-1a: nobody attacks it here, and a frame that is torn or mixed up has another one.
inline unsigned long long hash(View bytes) {
  unsigned long long value = 0xcbf29ce484222325ULL;
  for (const unsigned char byte : bytes) value = (value ^ byte) * 0x100000001b3ULL;
  return value;
}

}  // namespace lumsar::test
