// Camera records (lumsar/camera_data.h): the messages that carry one, and what is read from them.
// `type` is the message's type: IPC_MSG_DATA through a host, MSG_DATA on a channel to a VM.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "lumsar/camera_data.h"
#include "protocol/message.h"

namespace lumsar::protocol {

// A camera as it is announced to a VM.
struct Announcement {
  std::uint32_t camera = 0;  // the service's number
  CameraAnnounced format;
  std::string id;
  std::string name;

  bool operator==(const Announcement& other) const;
};

Message recordMessage(std::uint32_t type, CameraDataKind kind, std::uint32_t camera,
                      Bytes body = {});
// Texts are shortened to 1024 bytes.
Message announcedMessage(std::uint32_t type, const Announcement& announcement);
Message removedMessage(std::uint32_t type, std::uint32_t camera, std::string_view why);
Message frameMessage(std::uint32_t type, std::uint32_t camera, std::uint64_t captured,
                     const CameraFrame& fields, Bytes data = {});
// What a VM can show, best first.
Message encodingsMessage(std::uint32_t type, const std::vector<std::uint32_t>& encodings);
// Numbers a frame, as late as when it leaves: frames dropped before leave no gap. `isAsked`: the VM
// is to tell when it has it.
void stampFrame(Message& frame, std::uint32_t sequence, bool isAsked);

// The header of the record of this kind that a message of type MSG_DATA begins with; nothing for
// everything else. `message` may be incomplete.
std::optional<CameraDataHeader> readRecord(Bytes message, CameraDataKind kind);

// Nothing if the body is shorter than what it says of itself. The texts are clean, and a camera
// without a name gets one.
std::optional<Announcement> readAnnouncement(const CameraDataHeader& header, Bytes body);

std::vector<std::uint32_t> readEncodings(Bytes body);

// "MJPG" from its number; bytes that are not letters or digits become '?'.
std::string encodingName(std::uint32_t encoding);

}  // namespace lumsar::protocol
