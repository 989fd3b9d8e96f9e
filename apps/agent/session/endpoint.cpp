#include "session/endpoint.h"

#include <algorithm>
#include <utility>

#include "base/log.h"
#include "protocol/camera_record.h"
#include "protocol/hello.h"

namespace lumsar::agent {
namespace {

// Magic, type and length: what tells a HELLO from everything else.
constexpr std::size_t kHelloPattern = 12;

bool isHello(const RedirMsgHeader& header) {
  return header.magic == kMagic && header.type == MSG_HELLO &&
         header.length == sizeof(HelloPayload);
}

// Whether a HELLO follows the incomplete message at the front.
bool hasLaterHello(Bytes waiting) {
  if (waiting.empty()) return false;
  const RedirMsgHeader hello{.type = MSG_HELLO, .length = sizeof(HelloPayload)};
  const Bytes pattern = protocol::bytesOf(hello).first(kHelloPattern);
  const auto end = waiting.end();
  return std::search(waiting.begin() + 1, end, pattern.begin(), pattern.end()) != end;
}

}  // namespace

Endpoint::Endpoint(EndpointSettings settings, EndpointEvents& owner, std::string name)
    : m_settings(settings), m_owner(owner), m_name(std::move(name)) {}

void Endpoint::opened() {
  closed();
  requestHello();
}

void Endpoint::closed() {
  logDropped();
  m_assembler.clear();
  m_established = false;
}

bool Endpoint::requestHello() {
  if (m_settings.protocol != Protocol::Rdp) return false;
  m_owner.send(protocol::Message(MSG_CHANNEL_OPENED).bytes());
  base::logDebug("{}: told that the channel is open, waiting for its HELLO", m_name);
  return true;
}

void Endpoint::sendWakeUpProbe() {
  if (m_settings.protocol != Protocol::Spice || m_established) return;
  m_owner.send(protocol::recordMessage(MSG_DATA, CameraDataKind::WakeUpProbe, 0).bytes());
}

void Endpoint::received(std::size_t size) {
  m_assembler.commit(size);
  dispatchComplete();
}

bool Endpoint::dropStalled() {
  if (!m_established || !hasLaterHello(m_assembler.waiting())) return false;
  m_established = false;
  drop(m_assembler.skipFault());  // the front is valid, but will never be complete
  dispatchComplete();
  return true;
}

// Handles the complete messages; returns when more bytes are needed.
void Endpoint::dispatchComplete() {
  while (m_established || findHello()) {
    const Bytes message = m_assembler.next();
    if (!message.empty()) {
      dispatch(message);
    } else if (m_assembler.fault() != MessageAssembler::Fault::None) {
      fault(faultText(m_assembler.fault()));
    } else {
      return;
    }
  }
}

// Drops what precedes a HELLO. False when more bytes are needed to tell.
bool Endpoint::findHello() {
  for (;;) {
    const auto header = m_assembler.peek();
    if (header && isHello(*header)) return true;
    if (!header && m_assembler.fault() == MessageAssembler::Fault::None) return false;
    drop(m_assembler.skipFault());
  }
}

void Endpoint::drop(std::size_t bytes) {
  m_dropped += bytes;
  m_droppedInAll += bytes;
}

void Endpoint::logDropped() {
  if (m_dropped == 0) return;
  base::logWarning("{}: dropped {} bytes that were not part of a session", m_name, m_dropped);
  m_dropped = 0;
}

void Endpoint::dispatch(Bytes message) {
  const RedirMsgHeader header = readHeader(message.data());
  switch (header.type) {
    case MSG_HELLO:
      return isHello(header) ? answer(message) : fault("sent a HELLO of the wrong length");
    case MSG_DATA:
      return m_owner.takeRecord(message.subspan(kHeaderSize));
    case MSG_UNREDIRECT_ALL:
      return m_owner.unredirectAll();
    default:
      base::logWarning("{}: skipped a message of the unknown type {}, {} bytes", m_name,
                       header.type, header.length);
  }
}

void Endpoint::answer(Bytes message) {
  logDropped();
  m_established = true;
  const auto hello = protocol::readHello(message);
  if (!hello) return;
  protocol::HelloAnswer answer{m_settings.vmMajor, m_settings.vmMinor, m_settings.shareAll, {}};
  answer.payload.token =
      static_cast<std::uint16_t>(hello->payload.token + (m_settings.wrongToken ? 1U : 0U));
  answer.payload.vmSession = m_settings.session;
  m_owner.send(protocol::answerMessage(hello->header, answer).bytes());
  m_owner.established(hello->header, hello->payload.token);
}

void Endpoint::fault(const char* what) {
  base::logWarning("{}: {}; its cameras are dropped until the next handshake", m_name, what);
  m_established = false;
  m_owner.streamFault();
  requestHello();
}

}  // namespace lumsar::agent
