// What travels inside camera data messages (MSG_DATA, IPC_MSG_DATA): one record per message, a
// fixed 16-byte header and a body by kind. The plug-in passes it on unread; the camera service and
// the guest agent use it. Standalone: the standard library only. docs/protocol.md shows it.
//
// All numbers are little-endian, all texts UTF-8 without terminator. A receiver skips kinds that it
// does not know and ignores bytes after the fields that it knows, so that records can grow.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string_view>
#include <type_traits>

#include "lumsar/span.h"

namespace lumsar {

enum class CameraDataKind : std::uint16_t {
  Announced = 1,        // service to VM: a camera is shared; body CameraAnnounced, id, name
  Removed = 2,          // service to VM: it no longer is; body: the reason, as text
  Frame = 3,            // service to VM: body CameraFrame and one complete encoded frame
  Start = 4,            // VM to service: the camera has a consumer; no body
  Stop = 5,             // VM to service: it no longer has one; no body
  KeyFrameRequest = 6,  // VM to service: the next frame should be independently decodable; no body
  Statistics = 7,       // VM to service, about once a second while started; CameraStatistics
  WakeUpProbe = 8,      // VM to host: makes a channel deliver what it holds back; no body, camera 0
  Encodings = 9,        // VM to service, after the handshake: what it shows, best first; camera 0
  WantedSize = 10,      // VM to service: what the camera's consumer has asked for; body CameraSize
  Received = 11,        // VM to service: it has this frame, as asked; body CameraReceived
};

struct CameraDataHeader {
  std::uint16_t kind = 0;
  std::uint16_t zero = 0;
  std::uint32_t camera = 0;  // the service's number for the camera, never reused for another
  std::uint64_t time = 0;    // µs since 1970 (UTC) on the sender's clock: for a frame, its capture
};
static_assert(sizeof(CameraDataHeader) == 16);

constexpr std::uint32_t fourcc(const char (&code)[5]) {
  std::uint32_t value = 0;
  for (std::size_t i = 4; i-- > 0;) value = value << 8U | static_cast<unsigned char>(code[i]);
  return value;
}
inline constexpr std::uint32_t kEncodingMjpg = fourcc("MJPG");  // one complete JPEG per frame
inline constexpr std::uint32_t kEncodingH264 = fourcc("H264");  // one access unit, Annex B

struct CameraAnnounced {
  std::uint16_t vendorId = 0;  // USB ids, 0 where there are none
  std::uint16_t productId = 0;
  std::uint16_t width = 0;  // of the frames to come, until they say otherwise
  std::uint16_t height = 0;
  std::uint32_t frameInterval = 0;  // µs, 0 if not known
  std::uint32_t encoding = 0;
  std::uint16_t idLength = 0;  // the camera's id follows, then its name
  std::uint16_t nameLength = 0;
};
static_assert(sizeof(CameraAnnounced) == 20);

// Flags of a frame.
inline constexpr std::uint32_t kFrameIsKey = 1;  // independently decodable; set on every MJPG frame
inline constexpr std::uint32_t kFrameIsAsked = 2;  // the VM tells at once that it has received it

struct CameraFrame {
  std::uint32_t sequence = 0;  // one more with each frame that leaves the service for this VM
  std::uint16_t width = 0;
  std::uint16_t height = 0;
  std::uint32_t encoding = 0;
  std::uint32_t flags = 0;
};
static_assert(sizeof(CameraFrame) == 16);

struct CameraStatistics {
  std::uint64_t frames = 0;   // complete frames received since Start
  std::uint64_t bytes = 0;    // their data
  std::uint32_t lost = 0;     // gaps in the sequence
  std::uint32_t dropped = 0;  // received but not delivered: damaged, or a slow reader
  std::uint32_t latency = 0;  // µs, median of the last second from capture to arrival
  std::uint32_t rate = 0;     // frames per 1000 s that the VM delivered in the last second
};
static_assert(sizeof(CameraStatistics) == 32);

struct CameraSize {
  std::uint16_t width = 0;  // 0 where it does not matter
  std::uint16_t height = 0;
};
static_assert(sizeof(CameraSize) == 4);

struct CameraReceived {
  std::uint32_t sequence = 0;  // of the frame; 0 right after Start, before the first
};
static_assert(sizeof(CameraReceived) == 4);

// The record's clock.
inline std::uint64_t cameraClock() {
  using namespace std::chrono;
  const auto now = system_clock::now().time_since_epoch();
  return static_cast<std::uint64_t>(duration_cast<microseconds>(now).count());
}

// The struct at the front of `bytes`, which then begin after it; nothing when they are too short.
template <class Fields>
std::optional<Fields> take(Span<const unsigned char>& bytes) {
  static_assert(std::is_trivially_copyable_v<Fields>);
  if (bytes.size() < sizeof(Fields)) return std::nullopt;
  Fields fields;
  std::memcpy(&fields, bytes.data(), sizeof fields);
  bytes = bytes.subspan(sizeof fields);
  return fields;
}

// The text of `length` bytes at the front of `bytes`, which then begin after it.
inline std::optional<std::string_view> takeText(Span<const unsigned char>& bytes,
                                                std::size_t length) {
  if (bytes.size() < length) return std::nullopt;
  const std::string_view text(reinterpret_cast<const char*>(bytes.data()), length);
  bytes = bytes.subspan(length);
  return text;
}

}  // namespace lumsar
