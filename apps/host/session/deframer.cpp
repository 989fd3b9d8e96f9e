#include "session/deframer.h"

#include <algorithm>

#include "protocol/camera_record.h"

namespace lumsar::host {

namespace {

constexpr std::size_t kProbePayload = sizeof(CameraDataHeader);
constexpr std::size_t kProbeSize = kHeaderSize + kProbePayload;

bool beginsHandshake(const RedirMsgHeader& header) {
  return header.type == MSG_HELLO || header.type == MSG_CHANNEL_OPENED;
}

bool mayBeginProbe(const RedirMsgHeader& header) {
  return header.type == MSG_DATA && header.length == kProbePayload;
}

}  // namespace

std::span<unsigned char> Deframer::next() {
  while (true) {
    if (m_assembler.fault() == MessageAssembler::Fault::None) {
      const auto header = m_assembler.peek();
      if (!header) {
        m_assembler.trim();
        return {};
      }
      if (m_synchronised || beginsHandshake(*header)) {
        m_synchronised = true;
        return m_assembler.next();
      }
      if (mayBeginProbe(*header) && m_assembler.pending() < kProbeSize) return {};
    }
    // What looks like a probe may end in the middle and the handshake follow: no more of it is
    // dropped at once than of an error, but it is not counted as one.
    const std::size_t probe = isProbe() ? kProbeSize : 0;
    const std::size_t dropped = m_assembler.skipFault();
    m_dropped += dropped - std::min(dropped, probe);
  }
}

// The wake-up probe begins no handshake, but is not an error either.
bool Deframer::isProbe() const {
  const auto bytes = m_assembler.waiting();
  return protocol::readRecord(bytes, CameraDataKind::WakeUpProbe) &&
         readHeader(bytes.data()).length == kProbePayload;
}

}  // namespace lumsar::host
