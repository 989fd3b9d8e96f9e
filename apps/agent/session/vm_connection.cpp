// The VM's end of the protocol. Owned by a Peer.
// Bound to the channel's thread; no I/O of its own.
#include "session/vm_connection.h"

#include <algorithm>
#include <utility>

#include "app/log.h"

namespace lumsar::agent {
namespace {

// Magic, type and length: what tells a HELLO from all else.
constexpr std::size_t kHelloPattern = 12;

bool isHello(const RedirMsgHeader& header) {
  return header.type == MSG_HELLO && header.length == sizeof(HelloPayload);
}

}  // namespace

Link::Link(LinkSettings settings, LinkOwner& owner, std::string name)
    : m_settings(settings), m_owner(owner), m_name(std::move(name)) {}

void Link::opened() {
  closed();
  askForHello();
}

void Link::closed() {
  sayDropped();
  m_assembler.clear();
  m_established = false;
}

bool Link::askForHello() {
  if (m_settings.kind != LinkKind::Rdp) return false;
  m_owner.send(headerMessage(MSG_CHANNEL_OPENED));
  logDetail(m_name, ": told that the channel is open, waiting for its HELLO");
  return true;
}

void Link::knock() {
  if (m_settings.kind == LinkKind::Spice && !m_established) {
    m_owner.send(dataMessage(CameraDataKind::Knock, 0));
  }
}

void Link::received(std::size_t size) {
  m_assembler.commit(size);
  while (m_established || seekHello()) {
    const Bytes message = m_assembler.next();
    if (!message.empty()) {
      dispatch(message);
    } else if (m_assembler.fault() != MessageAssembler::Fault::None) {
      fault();
    } else {
      return;
    }
  }
}

void Link::stalled() {
  if (!m_established || m_assembler.pending() == 0) return;
  const Bytes waiting = m_assembler.waiting();
  const RedirMsgHeader hello{.type = MSG_HELLO, .length = sizeof(HelloPayload)};
  const Bytes pattern = bytesOf(hello).first(kHelloPattern);
  const auto behind = waiting.begin() + 1;
  if (std::search(behind, waiting.end(), pattern.begin(), pattern.end()) == waiting.end()) return;
  m_established = false;
  drop(m_assembler.skipFault());
  received(0);
}

// Drops what stands before a HELLO. True when the front is one, whole or not.
bool Link::seekHello() {
  for (;;) {
    const auto header = m_assembler.peek();
    if (header && header->magic == kMagic && isHello(*header)) return true;
    const bool mayBecomeOne = !header && m_assembler.fault() == MessageAssembler::Fault::None;
    if (mayBecomeOne) return false;
    drop(m_assembler.skipFault());
  }
}

void Link::drop(std::size_t bytes) {
  m_dropped += bytes;
  m_droppedInAll += bytes;
}

void Link::sayDropped() {
  if (m_dropped == 0) return;
  logWarning(m_name, ": dropped ", m_dropped, " bytes that were not part of a session");
  m_dropped = 0;
}

void Link::dispatch(Bytes message) {
  const RedirMsgHeader header = readHeader(message.data());
  const Bytes payload = message.subspan(kHeaderSize);
  switch (header.type) {
    case MSG_HELLO:
      if (!isHello(header)) return fault();
      return answer(header, payload);
    case MSG_DATA:
      return m_owner.takeRecord(payload);
    case MSG_UNREDIRECT_ALL:
      return m_owner.unredirectAll();
    default:
      logWarning(m_name, ": skipped a message of the unknown type ", header.type, ", ",
                 header.length, " bytes");
  }
}

void Link::answer(const RedirMsgHeader& header, Bytes payload) {
  sayDropped();
  m_established = true;
  const auto hello = take<HelloPayload>(payload);
  if (!hello) return;
  HelloMessage reply;
  reply.header.type = MSG_HELLO;
  reply.header.length = sizeof(HelloPayload);
  reply.header.clientMajor = header.clientMajor;
  reply.header.clientMinor = header.clientMinor;
  reply.header.vmMajor = m_settings.vmMajor;
  reply.header.vmMinor = m_settings.vmMinor;
  reply.header.capabilities =
      CAP_BASE_1 | CAP_BASE_2 |
      (m_settings.shareAll ? static_cast<std::uint32_t>(CAP_SHARE_ALL) : 0U);
  reply.payload.token =
      static_cast<std::uint16_t>(hello->token + (m_settings.wrongToken ? 1U : 0U));
  reply.payload.vmSession = m_settings.session;
  m_owner.greeted(header, hello->token);
  m_owner.send(bytesOf(reply));
}

void Link::fault() {
  const bool tooLong = m_assembler.fault() == MessageAssembler::Fault::TooLong;
  logWarning(m_name, ": ",
             tooLong ? "announced a message longer than this system knows"
                     : "sent bytes that are no message",
             "; its cameras are dropped until it greets again");
  m_established = false;
  m_owner.streamFault();
  askForHello();
}

}  // namespace lumsar::agent
