#include "session/deframer.h"

#include "protocol/camera_record.h"

namespace lumsar::host {

std::span<unsigned char> Deframer::next() {
  while (true) {
    const auto header = m_assembler.peek();
    if (m_assembler.fault() != MessageAssembler::Fault::None) {
      m_dropped += m_assembler.skipFault();
    } else if (!header) {
      return {};
    } else if (m_synchronised || header->type == MSG_HELLO || header->type == MSG_CHANNEL_OPENED) {
      m_synchronised = true;
      return m_assembler.next();
    } else if (isProbe()) {
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
