// Share: see share.h. Runs on the io_context's thread.
#include "session/share.h"

#include <chrono>
#include <utility>

#include "app/log.h"
#include "links/records.h"

namespace lumsar::service {
namespace {

constexpr std::int64_t kStuck = 10'000'000;  // µs without a frame that leaves

std::int64_t steadyMicroseconds() {
  using namespace std::chrono;
  return duration_cast<microseconds>(steady_clock::now().time_since_epoch()).count();
}

}  // namespace

Share::Share(CameraStream& stream, std::shared_ptr<VmLink> link, const PolicyRule& rule)
    : m_stream(stream), m_link(std::move(link)), m_rule(rule) {}

Share::~Share() {
  stop();
}

void Share::announce() {
  if (!m_link->ready()) return;
  m_link->send({announcedRecord(m_link->dataType(), camera(), m_stream.planFor(request()))});
}

void Share::withdraw(const std::string& why) {
  stop();
  if (m_link->ready()) m_link->send({goneRecord(m_link->dataType(), camera().number, why)});
}

void Share::setRule(const PolicyRule& rule) {
  if (rule == m_rule) return;
  m_rule = rule;
  m_rateControl.reset();
  if (m_started) m_stream.refresh();
}

void Share::start() {
  if (m_started) return;
  m_started = true;
  m_rateControl.reset();
  read();
}

void Share::read() {
  m_counters->needsKey = true;
  m_counters->droppedSince = false;
  m_counters->lastLeft = steadyMicroseconds();
  m_counters->onLeave = nullptr;
  m_stream.add(*this);
  m_stream.requestKeyFrame();
}

void Share::stop() {
  if (!m_started) return;
  m_started = false;
  m_counters->onLeave = nullptr;
  m_stream.remove(*this);
}

void Share::requestKeyFrame() {
  if (m_started) m_stream.requestKeyFrame();
}

void Share::onStatistics(const CameraStatistics& statistics) {
  if (!m_started || !m_rule.followVm) return;
  const double before = m_rateControl.limit();
  m_rateControl.update(statistics, m_counters->offered, steadyMicroseconds());
  if (m_rateControl.limit() == before) return;
  logDebug("camera '", camera().info.id, "': rate limit now ", m_rateControl.limit(),
           " per second");
  m_stream.refresh();
}

std::int64_t Share::interval() const {
  const std::int64_t wanted = std::int64_t{m_rule.intervalMs} * 1000;
  return m_rule.followVm ? std::max(wanted, m_rateControl.interval()) : wanted;
}

CaptureRequest Share::request() const {
  return {m_rule, interval()};
}

bool Share::onFrame(const CapturedFrame& frame) {
  const bool mayBeLeftOut = frame.encoding == kEncodingMjpg;
  if (mayBeLeftOut && !m_pacer.due(static_cast<std::int64_t>(frame.time), interval())) return true;
  if (m_counters->needsKey && !frame.key) {
    m_stream.requestKeyFrame();
  } else {
    send(frame);
  }
  if (!stuck()) return true;
  logWarning("camera '", camera().info.id, "' is not read for ", m_link->name(),
             " until that takes its frames again");
  m_counters->onLeave = [this] { read(); };
  return false;
}

bool Share::stuck() const {
  return m_counters->droppedSince && steadyMicroseconds() - m_counters->lastLeft > kStuck;
}

void Share::send(const CapturedFrame& frame) {
  m_counters->needsKey = false;
  ++m_counters->offered;
  m_link->send({frameRecord(m_link->dataType(), camera().number, frame), true,
                [counters = m_counters](ipc::Message& message) {
                  setSequence(message, static_cast<std::uint32_t>(++counters->frames));
                  counters->bytes += message.bytes().size();
                  counters->droppedSince = false;
                  counters->lastLeft = steadyMicroseconds();
                  if (const auto onLeave = std::exchange(counters->onLeave, nullptr)) onLeave();
                },
                [counters = m_counters] {
                  ++counters->dropped;
                  counters->droppedSince = true;
                  counters->needsKey = true;
                }});
}

}  // namespace lumsar::service
