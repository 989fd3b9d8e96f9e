// Camera data messages: see records.h. Called on the main thread.
#include "links/records.h"

#include <algorithm>
#include <cstring>

#include "lumsar/camera_data.h"

namespace lumsar::service {
namespace {

// Writes one field or text after another into a message's payload.
class RecordWriter {
 public:
  explicit RecordWriter(ipc::Message& message) : m_rest(message.payload()) {}

  template <class Fields>
  RecordWriter& add(const Fields& fields) {
    std::memcpy(m_rest.data(), &fields, sizeof fields);
    m_rest = m_rest.subspan(sizeof fields);
    return *this;
  }
  RecordWriter& addText(std::string_view text) {
    std::ranges::copy(text, m_rest.begin());
    m_rest = m_rest.subspan(text.size());
    return *this;
  }

 private:
  std::span<unsigned char> m_rest;
};

CameraDataHeader recordHeader(CameraDataKind kind, std::uint32_t camera, std::uint64_t time) {
  return {static_cast<std::uint16_t>(kind), 0, camera, time};
}

std::uint16_t side(int value) {
  return static_cast<std::uint16_t>(std::clamp(value, 0, 0xFFFF));
}

// Cut where a character of UTF-8 begins.
std::string_view shortened(std::string_view text) {
  constexpr std::size_t kMaxText = 1024;
  if (text.size() <= kMaxText) return text;
  std::size_t end = kMaxText;
  while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0U) == 0x80U) --end;
  return text.substr(0, end);
}

}  // namespace

ipc::Message announcedRecord(std::uint32_t type, const Camera& camera, const CapturePlan& plan) {
  const std::string_view id = shortened(camera.info.id);
  const std::string_view name = shortened(camera.info.name);
  CameraAnnounced body;
  body.vendorId = camera.info.vendorId;
  body.productId = camera.info.productId;
  body.width = side(plan.width);
  body.height = side(plan.height);
  body.frameInterval = static_cast<std::uint32_t>(plan.frameInterval());
  body.encoding = plan.encoding;
  body.idLength = static_cast<std::uint16_t>(id.size());
  body.nameLength = static_cast<std::uint16_t>(name.size());
  ipc::Message message(type, sizeof(CameraDataHeader) + sizeof body + id.size() + name.size());
  RecordWriter(message)
      .add(recordHeader(CameraDataKind::Announced, camera.number, cameraClock()))
      .add(body)
      .addText(id)
      .addText(name);
  return message;
}

ipc::Message goneRecord(std::uint32_t type, std::uint32_t camera, std::string_view why) {
  why = shortened(why);
  ipc::Message message(type, sizeof(CameraDataHeader) + why.size());
  RecordWriter(message).add(recordHeader(CameraDataKind::Removed, camera, cameraClock())).addText(why);
  return message;
}

ipc::Message frameRecord(std::uint32_t type, std::uint32_t camera, const CapturedFrame& frame) {
  CameraFrame body;
  body.width = side(frame.width);
  body.height = side(frame.height);
  body.encoding = frame.encoding;
  body.flags = frame.key ? kFrameIsKey : 0;
  ipc::Message message(type, sizeof(CameraDataHeader) + sizeof body + frame.picture.size());
  RecordWriter(message)
      .add(recordHeader(CameraDataKind::Frame, camera, frame.time))
      .add(body)
      .addText({reinterpret_cast<const char*>(frame.picture.data()), frame.picture.size()});
  return message;
}

void setSequence(ipc::Message& frame, std::uint32_t sequence) {
  const auto place =
      frame.payload().subspan(sizeof(CameraDataHeader) + offsetof(CameraFrame, sequence));
  std::memcpy(place.data(), &sequence, sizeof sequence);
}

}  // namespace lumsar::service
