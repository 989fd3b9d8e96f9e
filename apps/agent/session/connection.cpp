#include "session/connection.h"

#include <algorithm>
#include <utility>

#include "base/log.h"

namespace lumsar::agent {
namespace {

using namespace std::chrono_literals;

// Records to the service are tiny: a peer that leaves this much unread has stalled.
constexpr std::size_t kMaxUnsent = 1U << 20U;
// One peer's flood must not keep the others waiting.
constexpr int kReadsPerTurn = 16;
constexpr auto kStallTimeout = 1s;
constexpr int kFinishTimeoutMs = 500;
constexpr auto kWakeUpProbeDelay = 1s;

}  // namespace

Connection::Connection(std::unique_ptr<Transport> transport, const EndpointSettings& settings,
                       Gallery& gallery)
    : m_helloTimeout(settings.helloTimeout),
      m_idleTimeout(settings.idleTimeout),
      m_transport(std::move(transport)),
      m_endpoint(settings, *this, m_transport->name()),
      m_cameras(gallery, [this](Bytes message) { send(message); }) {
  if (m_transport->attached()) attached();
}

Connection::~Connection() {
  m_cameras.dropAll("the connection has ended", false);
}

pollfd Connection::pollRequest() const {
  const bool writing = m_transport->attached() && !m_unsent.empty();
  return {m_transport->descriptor(), static_cast<short>(writing ? POLLIN | POLLOUT : POLLIN), 0};
}

void Connection::handle(short events) {
  if (events == 0) return;
  if (!m_transport->attached()) return tryAttach();
  if ((events & POLLOUT) != 0) flush();
  if ((events & ~POLLOUT) != 0) readSome();
}

void Connection::tryAttach() {
  if (!m_transport->attach()) return;
  base::logInfo("{}: connected", m_transport->name());
  m_wakeUpProbeTime = Clock::now() + kWakeUpProbeDelay;
  attached();
}

void Connection::attached() {
  expectHello(Hello::Expected);
  m_endpoint.opened();
}

void Connection::readSome() {
  for (int i = 0; i < kReadsPerTurn && m_transport->attached(); ++i) {
    const ssize_t got = m_transport->read(m_endpoint.room());
    if (got < 0) return disconnect("disconnected");
    if (got == 0) return;
    m_stallTime = Clock::now() + kStallTimeout;
    m_endpoint.received(static_cast<std::size_t>(got));
  }
}

void Connection::send(Bytes message) {
  if (!m_transport->attached()) return;
  m_unsent.insert(m_unsent.end(), message.begin(), message.end());
  flush();
}

void Connection::flush() {
  while (!m_unsent.empty()) {
    const ssize_t sent = m_transport->write(m_unsent);
    if (sent <= 0) break;  // the next read finds out whether the peer has disconnected
    m_unsent.erase(m_unsent.begin(), m_unsent.begin() + sent);
  }
}

void Connection::disconnect(const std::string& why) {
  m_transport->detach();
  m_unsent.clear();
  m_hello = Hello::NotExpected;
  m_endpoint.closed();
  m_cameras.dropAll("the connection has ended", false);
  base::logInfo("{}: {}", m_transport->name(), why);
}

void Connection::established(const RedirMsgHeader& header, std::uint16_t token) {
  m_cameras.dropAll("a new session begins", false);
  m_hello = Hello::NotExpected;
  if (m_status.hellos == 0) m_establishedAt = Clock::now();
  m_status.token = token;
  m_status.clientMajor = header.clientMajor;
  m_status.clientMinor = header.clientMinor;
  m_status.capabilities = header.capabilities;
  ++m_status.hellos;
  base::logInfo("{}: HELLO, token {}, version {}.{}, capabilities {:#x}", m_transport->name(),
                token, header.clientMajor, header.clientMinor, header.capabilities);
  if (header.clientMajor != kProtocolMajor) {
    base::logWarning("{}: uses a protocol version other than {}.{}; cameras may not work",
                     m_transport->name(), kProtocolMajor, kProtocolMinor);
  }
  m_cameras.sendEncodings();
}

void Connection::unredirectAll() {
  m_cameras.dropAll("unshared by the host", false);
}

void Connection::streamFault() {
  ++m_status.faults;
  expectHello(Hello::AfterFault);
  m_cameras.dropAll("the stream is broken", false);
}

void Connection::update(Clock::time_point now) {
  if (!m_transport->attached()) tryAttach();
  if (m_unsent.size() > kMaxUnsent) return disconnect("has stopped reading, disconnected");
  checkStalled(now);
  wakeUpHost(now);
  checkHello(now);
  checkIdle(now);
  m_cameras.update(now);
}

Clock::time_point Connection::due() const {
  constexpr auto kNever = Clock::time_point::max();
  if (!m_transport->attached()) return m_transport->nextAttempt();
  const auto hello = m_hello == Hello::NotExpected ? kNever : m_helloDeadline;
  return std::min({hello, m_cameras.due(), m_stallTime.value_or(kNever),
                   m_wakeUpProbeTime.value_or(kNever), idleDeadline().value_or(kNever)});
}

// Nothing but what comes changes what a stall brings to light, so it is looked for once.
void Connection::checkStalled(Clock::time_point now) {
  if (!m_stallTime || now < *m_stallTime) return;
  m_stallTime.reset();
  while (m_transport->attached() && m_endpoint.dropStalled()) {
  }
}

// An emulator delivers what it has held back for a closed port only when the port is written to:
// without this a host's HELLO may stay queued after frames that a previous program did not read.
void Connection::wakeUpHost(Clock::time_point now) {
  if (!m_wakeUpProbeTime || now < *m_wakeUpProbeTime) return;
  m_wakeUpProbeTime.reset();
  if (m_transport->attached()) m_endpoint.sendWakeUpProbe();
}

void Connection::expectHello(Hello hello) {
  m_hello = hello;
  m_helloDeadline = Clock::now() + m_helloTimeout;
}

// A silent peer is asked again, once where it keeps out others. Where asking is not possible or
// does not help, it is disconnected if that helps anyone, and waited for otherwise.
void Connection::checkHello(Clock::time_point now) {
  if (m_hello == Hello::NotExpected || now < m_helloDeadline) return;
  const bool exclusive = m_transport->requiresHello();
  if (!(exclusive && m_hello == Hello::Requested) && m_endpoint.requestHello()) {
    return expectHello(Hello::Requested);
  }
  if (m_hello == Hello::AfterFault) {
    return disconnect("sends no new HELLO, disconnected so that it can start again");
  }
  if (exclusive) {
    return disconnect("connected, but sends no HELLO; disconnected so that others can connect");
  }
  base::logWarning("{}: connected, but sends no HELLO; still waiting", m_transport->name());
  m_hello = Hello::NotExpected;
}

// Whoever holds a place of the few must have a use for it.
void Connection::checkIdle(Clock::time_point now) {
  const auto deadline = idleDeadline();
  if (!deadline || now < *deadline || !m_transport->attached()) return;
  disconnect("has announced no camera, disconnected so that others can connect");
}

std::optional<Clock::time_point> Connection::idleDeadline() const {
  if (m_idleTimeout.count() == 0 || m_status.hellos == 0 || m_cameras.announcements() > 0)
    return {};
  return m_establishedAt + m_idleTimeout;
}

void Connection::finish() {
  m_cameras.dropAll("lumsar-agent is stopping", true);
  for (flush(); m_transport->attached() && !m_unsent.empty(); flush()) {
    pollfd writable{m_transport->descriptor(), POLLOUT, 0};
    // A peer that has disconnected stays writable as well.
    if (poll(&writable, 1, kFinishTimeoutMs) <= 0 || writable.revents != POLLOUT) break;
  }
}

ConnectionStatus Connection::status() const {
  ConnectionStatus status = m_status;
  status.name = m_transport->name();
  status.attached = m_transport->attached();
  status.established = m_endpoint.established();
  status.droppedBytes = m_endpoint.droppedBytes();
  return status;
}

}  // namespace lumsar::agent
