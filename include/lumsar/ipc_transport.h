// The transport between `libvdi_ipc.so` and the camera service: a Unix stream socket that carries
// complete messages (message.h). Its own message types, its timeouts and the library's error codes,
// for those who build either end and for hosts that put a code into words.
//
//   client                                          service
//     | connect  $XDG_RUNTIME_DIR/lumsar/N.sock        |
//     |----------------------------------------------->|  each checks the other's user id
//     | IPC_MSG_CONNECT_REQUEST, payload: its name     |
//     |----------------------------------------------->|
//     |  IPC_MSG_CONNECT_ACCEPT, param: 0 or IpcError  |
//     |<-----------------------------------------------|
//     | messages both ways                             |
//
// A synchronous call is a message whose `reserved` bytes hold a call number other than 0; the
// service's answer carries the same number. In all other messages they are 0.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "lumsar/message.h"

namespace lumsar {

// Types from here on belong to the transport and the service's tools and are never delivered.
inline constexpr std::uint32_t kIpcOwnTypes = 0x100;

enum IpcOwnType : std::uint32_t {
  IPC_MSG_CONNECT_REQUEST = 0x100,  // first message of a client; payload: its name, UTF-8
  IPC_MSG_CONNECT_ACCEPT = 0x101,   // the service's answer; param: 0 or one of IpcError
  IPC_MSG_STATUS = 0x110,           // synchronous call without payload, answered by JSON
  IPC_MSG_CONTROL = 0x111,          // the same with a command on a host's behalf, JSON
};

// What the functions of libvdi_ipc.so return, and what onClose receives, besides 0 and
// kIpcReplyTooLarge (8). Distinct from all status codes of the plug-in.
enum IpcError : int {
  IPC_ERROR_PARAMETER = 100,          // a null client, name, buffer or length, or an unusable name
  IPC_ERROR_NO_RUNTIME_DIR = 101,     // neither XDG_RUNTIME_DIR nor /run/user/UID
  IPC_ERROR_PATH_TOO_LONG = 102,      // the socket's path exceeds 107 bytes
  IPC_ERROR_NO_SERVICE = 103,         // no service listens there
  IPC_ERROR_OTHER_USER = 104,         // the other end belongs to another user
  IPC_ERROR_REFUSED = 105,            // too many clients, or closed without an accept
  IPC_ERROR_CONNECT_TIMEOUT = 106,    // no accept within kIpcConnectTimeout
  IPC_ERROR_ALREADY_CONNECTED = 107,  // connected, or a connection is being made
  IPC_ERROR_NOT_CONNECTED = 108,
  IPC_ERROR_BAD_MESSAGE = 109,    // to be sent: magic, size or length do not agree; not sent
  IPC_ERROR_SEND_TIMEOUT = 110,   // the service read nothing for kIpcSendTimeout
  IPC_ERROR_SERVICE_GONE = 111,   // the service closed the connection, ended or was killed
  IPC_ERROR_BAD_MAGIC = 112,      // received: bytes that are not a message; connection closed
  IPC_ERROR_TOO_LONG = 113,       // received: a message above kMaxPayload; connection closed
  IPC_ERROR_REPLY_TIMEOUT = 114,  // no reply within kIpcCallTimeout; a late one is dropped
  IPC_ERROR_IN_CALLBACK = 115,    // a synchronous call inside a callback would wait for itself
  IPC_ERROR_SYSTEM = 116,         // out of descriptors, threads or memory
  IPC_ERROR_DISCONNECTED = 117,   // VDI_DisconnectIpcClient ended the operation
};

inline constexpr std::chrono::milliseconds kIpcConnectTimeout{3000};
inline constexpr std::chrono::milliseconds kIpcSendTimeout{2000};
inline constexpr std::chrono::milliseconds kIpcCallTimeout{5000};
inline constexpr std::size_t kIpcMaxPath = 107;

// What a code means and what to do about it; null if the code is not the library's.
constexpr const char* ipcErrorText(int error) {
  switch (error) {
    case 8:
      return "the reply does not fit the buffer; call again with a larger one";
    case IPC_ERROR_PARAMETER:
      return "a parameter is null or a channel name cannot be used";
    case IPC_ERROR_NO_RUNTIME_DIR:
      return "no runtime directory; set XDG_RUNTIME_DIR";
    case IPC_ERROR_PATH_TOO_LONG:
      return "the socket's path is longer than 107 bytes";
    case IPC_ERROR_NO_SERVICE:
      return "the camera service is not running on this channel";
    case IPC_ERROR_OTHER_USER:
      return "the camera service runs as another user";
    case IPC_ERROR_REFUSED:
      return "the camera service has too many clients, or closed the connection unanswered";
    case IPC_ERROR_CONNECT_TIMEOUT:
      return "the camera service did not answer in time";
    case IPC_ERROR_ALREADY_CONNECTED:
      return "already connected or connecting";
    case IPC_ERROR_NOT_CONNECTED:
      return "not connected to the camera service";
    case IPC_ERROR_BAD_MESSAGE:
      return "not a complete message; nothing was sent";
    case IPC_ERROR_SEND_TIMEOUT:
      return "the camera service takes no data; restart it";
    case IPC_ERROR_SERVICE_GONE:
      return "the camera service ended; start it and connect again";
    case IPC_ERROR_BAD_MAGIC:
      return "the camera service sent bytes that are not a message";
    case IPC_ERROR_TOO_LONG:
      return "the camera service sent a message above the size limit";
    case IPC_ERROR_REPLY_TIMEOUT:
      return "the camera service did not reply in time";
    case IPC_ERROR_IN_CALLBACK:
      return "a synchronous call is not possible inside a callback";
    case IPC_ERROR_SYSTEM:
      return "the system is out of descriptors, threads or memory";
    case IPC_ERROR_DISCONNECTED:
      return "disconnected while the operation was in progress";
    default:
      return nullptr;
  }
}

inline std::uint64_t callNumber(const RedirMsgHeader& header) {
  std::uint64_t number = 0;
  std::memcpy(&number, header.reserved, sizeof number);
  return number;
}

inline void setCallNumber(RedirMsgHeader& header, std::uint64_t number) {
  static_assert(sizeof header.reserved == sizeof number);
  std::memcpy(header.reserved, &number, sizeof number);
}

}  // namespace lumsar
