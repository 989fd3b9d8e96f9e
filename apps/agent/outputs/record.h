// Camera data records as the VM's side sees them: what is read from the service, and the messages
// that ask something of it. Called by Peer and Camera on the channel's thread.
// No I/O, no state: reentrant.
#ifndef LUMSAR_AGENT_OUTPUTS_RECORD_H
#define LUMSAR_AGENT_OUTPUTS_RECORD_H

#include <optional>
#include <span>
#include <string>
#include <vector>

#include "lumsar/camera_data.h"
#include "lumsar/message.h"

namespace lumsar::agent {

using Bytes = std::span<const unsigned char>;

struct CameraInfo {
  std::uint32_t number = 0;  // the service's
  CameraAnnounced format;
  std::string id;  // both texts are clean
  std::string name;
};

// Nothing if the record is shorter than what it says of itself.
std::optional<CameraInfo> readAnnounced(const CameraDataHeader& header, Bytes body);

// A whole message with one record, ready to be sent.
std::vector<unsigned char> dataMessage(CameraDataKind kind, std::uint32_t camera, Bytes body = {});

// A message that is only a header.
std::vector<unsigned char> headerMessage(RedirMsgType type);

template <class Fields>
Bytes bytesOf(const Fields& fields) {
  static_assert(std::is_trivially_copyable_v<Fields>);
  return {reinterpret_cast<const unsigned char*>(&fields), sizeof fields};
}

// "MJPG" from its number; bytes that are no letters or digits become '?'.
std::string encodingName(std::uint32_t encoding);

}  // namespace lumsar::agent

#endif
