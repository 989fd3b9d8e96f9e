#include "session/deframer.h"

#include "protocol/camera_record.h"

namespace lumsar::host {

namespace {

bool beginsHandshake(const RedirMsgHeader& header) {
  return header.type == MSG_HELLO || header.type == MSG_CHANNEL_OPENED;
}

}  // namespace

std::span<unsigned char> Deframer::next() {
  while (true) {
    const bool mayBeMessage = m_assembler.fault() == MessageAssembler::Fault::None;
    const auto header = m_assembler.peek();
    if (mayBeMessage && !header) {
      m_assembler.trim();
      return {};
    }
    if (mayBeMessage && (m_synchronised || beginsHandshake(*header))) {
      m_synchronised = true;
      return m_assembler.next();
    }
    if (mayBeMessage && isProbe()) {
      m_assembler.next();
    } else {
      m_dropped += m_assembler.skipFault();
    }
  }
}

// The wake-up probe begins no handshake, but is not an error either.
bool Deframer::isProbe() const {
  const auto bytes = m_assembler.waiting();
  return protocol::readRecord(bytes, CameraDataKind::WakeUpProbe) &&
         readHeader(bytes.data()).length == sizeof(CameraDataHeader);
}

}  // namespace lumsar::host
