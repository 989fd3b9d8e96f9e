#include "protocol/camera_record.h"

#include <algorithm>

#include "base/text/format.h"
#include "base/text/utf8.h"

namespace lumsar::protocol {
namespace {

constexpr std::size_t kMaxText = 1024;

CameraDataHeader recordHeader(CameraDataKind kind, std::uint32_t camera,
                              std::uint64_t time = cameraClock()) {
  return {static_cast<std::uint16_t>(kind), 0, camera, time};
}

bool isLetterOrDigit(unsigned char c) {
  return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

}  // namespace

Message recordMessage(std::uint32_t type, CameraDataKind kind, std::uint32_t camera, Bytes body) {
  return Message(type, {bytesOf(recordHeader(kind, camera)), body});
}

Message announcedMessage(std::uint32_t type, const Announcement& announcement) {
  const std::string_view id = base::shortened(announcement.id, kMaxText);
  const std::string_view name = base::shortened(announcement.name, kMaxText);
  CameraAnnounced body = announcement.format;
  body.idLength = static_cast<std::uint16_t>(id.size());
  body.nameLength = static_cast<std::uint16_t>(name.size());
  return Message(type, {bytesOf(recordHeader(CameraDataKind::Announced, announcement.camera)),
                        bytesOf(body), bytesOf(id), bytesOf(name)});
}

Message removedMessage(std::uint32_t type, std::uint32_t camera, std::string_view why) {
  return recordMessage(type, CameraDataKind::Removed, camera,
                       bytesOf(base::shortened(why, kMaxText)));
}

Message frameMessage(std::uint32_t type, std::uint32_t camera, std::uint64_t captured,
                     const CameraFrame& fields, Bytes data) {
  return Message(type, {bytesOf(recordHeader(CameraDataKind::Frame, camera, captured)),
                        bytesOf(fields), data});
}

Message encodingsMessage(std::uint32_t type, const std::vector<std::uint32_t>& encodings) {
  return recordMessage(type, CameraDataKind::Encodings, 0,
                       {reinterpret_cast<const unsigned char*>(encodings.data()),
                        encodings.size() * sizeof(std::uint32_t)});
}

void stampFrame(Message& frame, std::uint32_t sequence, bool isAsked) {
  const auto place = frame.payload().subspan(sizeof(CameraDataHeader), sizeof(CameraFrame));
  CameraFrame fields;
  std::memcpy(&fields, place.data(), sizeof fields);
  fields.sequence = sequence;
  if (isAsked) fields.flags |= kFrameIsAsked;
  std::memcpy(place.data(), &fields, sizeof fields);
}

std::optional<CameraDataHeader> readRecord(Bytes message, CameraDataKind kind) {
  const auto header = take<RedirMsgHeader>(message);
  const auto record = take<CameraDataHeader>(message);
  if (!header || !record || header->magic != kMagic || header->type != MSG_DATA) return {};
  if (header->length < sizeof *record) return {};
  if (record->kind != static_cast<std::uint16_t>(kind)) return {};
  return record;
}

bool Announcement::operator==(const Announcement& other) const {
  return camera == other.camera && std::ranges::equal(bytesOf(format), bytesOf(other.format)) &&
         id == other.id && name == other.name;
}

std::optional<Announcement> readAnnouncement(const CameraDataHeader& header, Bytes body) {
  const auto format = take<CameraAnnounced>(body);
  if (!format) return std::nullopt;
  const auto id = takeText(body, format->idLength);
  if (!id) return std::nullopt;
  const auto name = takeText(body, format->nameLength);
  if (!name) return std::nullopt;
  Announcement result{header.camera, *format, base::clean(*id), base::clean(*name)};
  if (result.name.empty()) result.name = base::text("camera {}", result.camera);
  return result;
}

std::vector<std::uint32_t> readEncodings(Bytes body) {
  constexpr std::size_t kMaxEncodings = 16;  // there are two
  body = body.first(std::min(body.size(), kMaxEncodings * sizeof(std::uint32_t)));
  std::vector<std::uint32_t> encodings;
  while (const auto encoding = take<std::uint32_t>(body)) encodings.push_back(*encoding);
  return encodings;
}

std::string encodingName(std::uint32_t encoding) {
  std::string name;
  for (const unsigned char c : bytesOf(encoding)) {
    name += isLetterOrDigit(c) ? static_cast<char>(c) : '?';
  }
  return name;
}

}  // namespace lumsar::protocol
