// One other side. Owned by Program.
// Bound to the channel's thread.
#include "session/peer.h"

#include <utility>

#include "app/log.h"

namespace lumsar::agent {
namespace {

using namespace std::chrono_literals;

// Records towards the service are tiny: whoever leaves so many of them unread is not there.
constexpr std::size_t kMostUnsent = 1U << 20U;
// One peer's flood must not keep the others waiting.
constexpr int kReadsATurn = 16;
constexpr auto kStall = 1s;
constexpr int kFinishMs = 500;
constexpr auto kKnockAfter = 1s;

}  // namespace

Peer::Peer(std::unique_ptr<Transport> transport, const LinkSettings& settings, Gallery& gallery)
    : m_helloPatience(settings.helloPatience),
      m_transport(std::move(transport)),
      m_link(settings, *this, m_transport->name()),
      m_cameras(gallery, [this](Bytes message) { send(message); }) {
  if (!m_transport->attached()) return;
  m_awaitingHelloSince = Clock::now();
  m_link.opened();
}

Peer::~Peer() {
  m_cameras.dropAll("the connection has ended", false);
}

pollfd Peer::wanted() const {
  const bool writing = m_transport->attached() && !m_out.empty();
  return {m_transport->descriptor(), static_cast<short>(writing ? POLLIN | POLLOUT : POLLIN), 0};
}

void Peer::handle(short events) {
  if (events == 0) return;
  if (!m_transport->attached()) return tryAttach();
  if ((events & POLLOUT) != 0) flush();
  if ((events & ~POLLOUT) != 0) readSome();
}

void Peer::tryAttach() {
  if (!m_transport->attach()) return;
  logInfo(m_transport->name(), ": connected");
  m_broken = false;
  m_asked = false;
  m_awaitingHelloSince = Clock::now();
  m_knockAt = Clock::now() + kKnockAfter;
  m_link.opened();
}

void Peer::readSome() {
  for (int i = 0; i < kReadsATurn && m_transport->attached(); ++i) {
    const ssize_t got = m_transport->read(m_link.room());
    if (got < 0) return lose("disconnected");
    if (got == 0) return;
    m_lastRead = Clock::now();
    m_link.received(static_cast<std::size_t>(got));
  }
}

void Peer::send(Bytes message) {
  if (!m_transport->attached()) return;
  m_out.insert(m_out.end(), message.begin(), message.end());
  flush();
}

void Peer::flush() {
  while (!m_out.empty()) {
    const ssize_t sent = m_transport->write(m_out);
    if (sent <= 0) break;  // one that has left is found by the next read
    m_out.erase(m_out.begin(), m_out.begin() + sent);
  }
}

void Peer::lose(const std::string& why) {
  m_transport->detach();
  m_out.clear();
  m_awaitingHelloSince.reset();
  m_link.closed();
  m_cameras.dropAll("the connection has ended", false);
  logInfo(m_transport->name(), ": ", why);
}

void Peer::greeted(const RedirMsgHeader& header, std::uint16_t token) {
  m_cameras.dropAll("a new session begins", false);
  m_awaitingHelloSince.reset();
  m_asked = false;
  m_status.token = token;
  m_status.clientMajor = header.clientMajor;
  m_status.clientMinor = header.clientMinor;
  m_status.capabilities = header.capabilities;
  ++m_status.hellos;
  logInfo(m_transport->name(), ": hello, token ", token, ", version ", m_status.clientMajor, ".",
          m_status.clientMinor, ", capabilities 0x", std::hex, header.capabilities);
  if (header.clientMajor != kProtocolMajor) {
    logWarning(m_transport->name(), ": speaks another version than ", int{kProtocolMajor}, ".",
               int{kProtocolMinor}, "; cameras may not work");
  }
}

void Peer::unredirectAll() {
  m_cameras.dropAll("withdrawn by the host", false);
}

void Peer::streamFault() {
  ++m_status.faults;
  m_broken = true;
  m_awaitingHelloSince = Clock::now();
  m_cameras.dropAll("the stream is broken", false);
}

void Peer::update(Clock::time_point now) {
  if (!m_transport->attached()) tryAttach();
  if (m_out.size() > kMostUnsent) return lose("takes nothing that is sent to it, sent away");
  if (now - m_lastRead > kStall) m_link.stalled();
  knock(now);
  remindOfHello(now);
  m_cameras.update(now);
}

// An emulator goes on with what it has held back from a closed port only when the port is written
// to: without this a host's HELLO may stay behind pictures that a former program did not take.
void Peer::knock(Clock::time_point now) {
  if (!m_knockAt || now < *m_knockAt) return;
  m_knockAt.reset();
  if (m_transport->attached()) m_link.knock();
}

void Peer::remindOfHello(Clock::time_point now) {
  if (!m_awaitingHelloSince || now - *m_awaitingHelloSince < m_helloPatience) return;
  m_awaitingHelloSince = now;
  const bool mustGreet = m_transport->mustGreet();
  const bool mayAsk = !mustGreet || !std::exchange(m_asked, true);
  if (mayAsk && m_link.askForHello()) return;
  if (m_broken) {
    return lose("does not greet again, sent away so that it can begin anew");
  }
  if (mustGreet) return lose("connected, but sends no HELLO; sent away to make room for others");
  logWarning(m_transport->name(), ": connected, but sends no HELLO; still waiting");
  m_awaitingHelloSince.reset();
}

void Peer::finish() {
  m_cameras.dropAll("this program ends", true);
  for (flush(); m_transport->attached() && !m_out.empty(); flush()) {
    pollfd writable{m_transport->descriptor(), POLLOUT, 0};
    // A host that has left is writable, too, for ever.
    if (poll(&writable, 1, kFinishMs) <= 0 || writable.revents != POLLOUT) break;
  }
}

PeerStatus Peer::status() const {
  PeerStatus status = m_status;
  status.name = m_transport->name();
  status.attached = m_transport->attached();
  status.greeted = m_link.established();
  status.droppedBytes = m_link.droppedBytes();
  return status;
}

}  // namespace lumsar::agent
