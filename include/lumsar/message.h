// The binary message: the one 32-byte header of everything that crosses the VM channel and the
// connection to the camera service, and the message types of both. Included by all parties.
// Standalone: the standard library only.
//
//    0       4       8       12      16  17  18  19  20      24              32
//   +-------+-------+-------+-------+---+---+---+---+-------+---------------+----------
//   | magic | type  |length | param |cMa|cMi|vMa|vMi| caps  |   reserved    | payload...
//   +-------+-------+-------+-------+---+---+---+---+-------+---------------+----------
//
// All numbers are little-endian; `length` counts the payload only.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace lumsar {

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__,
              "headers are copied to and from the wire as they stand in memory");

inline constexpr std::uint32_t kMagic = 0x5643414D;  // wire bytes 4D 41 43 56
inline constexpr std::size_t kHeaderSize = 32;

struct RedirMsgHeader {
  std::uint32_t magic = kMagic;
  std::uint32_t type = 0;
  std::uint32_t length = 0;      // payload bytes after the header
  std::uint32_t param = 0;       // free for the sender; the plug-in writes 0
  std::uint8_t clientMajor = 0;  // protocol version of the plug-in, in a HELLO
  std::uint8_t clientMinor = 0;
  std::uint8_t vmMajor = 0;  // protocol version of the guest agent, in its HELLO
  std::uint8_t vmMinor = 0;
  std::uint32_t capabilities = 0;  // CAP_* bits, in a HELLO
  std::uint8_t reserved[8] = {};
};
static_assert(sizeof(RedirMsgHeader) == kHeaderSize);
static_assert(offsetof(RedirMsgHeader, clientMajor) == 16);
static_assert(offsetof(RedirMsgHeader, capabilities) == 20);

// Types on the VM channel.
enum RedirMsgType : std::uint32_t {
  MSG_HELLO = 0,           // both ways, payload HelloPayload
  MSG_DATA = 1,            // both ways, camera data
  MSG_UNREDIRECT_ALL = 2,  // plug-in to VM, header only
  MSG_CHANNEL_OPENED = 3,  // VM to plug-in: the VM's end of the RDP channel is open
};

// Types on the connection to the camera service.
enum IpcMsgType : std::uint32_t {
  IPC_MSG_CAMERA_LIST = 1,    // synchronous call without payload
  IPC_MSG_SHARE = 2,          // command document
  IPC_MSG_CONNECT_VM = 3,     // command document
  IPC_MSG_UNSHARE = 4,        // command document
  IPC_MSG_UNSHARE_ALL = 5,    // command document or nothing
  IPC_MSG_DATA = 6,           // both ways, camera data
  IPC_MSG_POLICY = 7,         // policy document and one zero byte
  IPC_MSG_DEVICE_CHANGE = 8,  // service to plug-in, handed to the host as it is
  IPC_MSG_REDIRECT_ALL = 9,   // command document
};

// Capability bits of a HELLO. The first two are set in every HELLO of the plug-in and not
// interpreted.
enum Capability : std::uint32_t {
  CAP_BASE_1 = 0x01,
  CAP_BASE_2 = 0x02,
  // Sharing all cameras with a VM session at once. The plug-in announces it over RDP only, and
  // obeys it in any VM's answer: a SPICE host clears it there.
  CAP_SHARE_ALL = 0x10,
};

inline constexpr std::uint8_t kProtocolMajor = 1;
inline constexpr std::uint8_t kProtocolMinor = 1;

struct HelloPayload {
  std::uint16_t token = 0;      // made by the plug-in, echoed by the VM
  std::uint16_t vmSession = 0;  // 0 from the plug-in, the session id from the VM
};

struct HelloMessage {
  RedirMsgHeader header;
  HelloPayload payload;
};
static_assert(sizeof(HelloMessage) == kHeaderSize + 4);

// Towards an RDP host a message goes out in consecutive fragments of at most this many bytes.
inline constexpr int kRdpFragmentSize = 1536;

// Reads the header of the message at `data`, which may be unaligned and must hold 32 bytes.
inline RedirMsgHeader readHeader(const void* data) {
  RedirMsgHeader header;
  std::memcpy(&header, data, kHeaderSize);
  return header;
}

// One field of the header of the message at `data`, for a receiver that needs no more than that.
inline std::uint32_t readField(const void* data, std::size_t offset) {
  std::uint32_t field = 0;
  std::memcpy(&field, static_cast<const unsigned char*>(data) + offset, sizeof field);
  return field;
}

}  // namespace lumsar
