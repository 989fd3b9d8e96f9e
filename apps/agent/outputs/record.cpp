// Reading and building camera data records. Called by Peer and Camera on the channel's thread.
// No I/O, no state.
#include "outputs/record.h"

#include <cctype>

#include "app/log.h"

namespace lumsar::agent {

std::optional<CameraInfo> readAnnounced(const CameraDataHeader& header, Bytes body) {
  const auto format = take<CameraAnnounced>(body);
  if (!format) return std::nullopt;
  const auto id = takeText(body, format->idLength);
  if (!id) return std::nullopt;
  const auto name = takeText(body, format->nameLength);
  if (!name) return std::nullopt;
  CameraInfo info{header.camera, *format, clean(*id), clean(*name)};
  if (info.name.empty()) info.name = text("camera ", info.number);
  return info;
}

std::vector<unsigned char> dataMessage(CameraDataKind kind, std::uint32_t camera, Bytes body) {
  RedirMsgHeader header;
  header.type = MSG_DATA;
  header.length = static_cast<std::uint32_t>(sizeof(CameraDataHeader) + body.size());
  const CameraDataHeader record{static_cast<std::uint16_t>(kind), 0, camera, cameraClock()};
  std::vector<unsigned char> message;
  message.reserve(kHeaderSize + header.length);
  for (const Bytes part : {bytesOf(header), bytesOf(record), body}) {
    message.insert(message.end(), part.begin(), part.end());
  }
  return message;
}

std::vector<unsigned char> headerMessage(RedirMsgType type) {
  RedirMsgHeader header;
  header.type = type;
  const Bytes bytes = bytesOf(header);
  return {bytes.begin(), bytes.end()};
}

std::string encodingName(std::uint32_t encoding) {
  std::string name;
  for (unsigned shift = 0; shift < 32; shift += 8) {
    const int c = static_cast<int>(encoding >> shift & 0xFFU);
    name.push_back(c < 128 && std::isalnum(c) != 0 ? static_cast<char>(c) : '?');
  }
  return name;
}

}  // namespace lumsar::agent
