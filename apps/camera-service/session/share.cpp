#include "session/share.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include "base/log.h"
#include "base/text/format.h"
#include "protocol/camera_record.h"

namespace lumsar::service {
namespace {

constexpr int kMinWantedSide = 16;
constexpr std::int64_t kStallTimeout = 10'000'000;  // µs without a frame that leaves

std::int64_t steadyMicroseconds() {
  using namespace std::chrono;
  return duration_cast<microseconds>(steady_clock::now().time_since_epoch()).count();
}

std::uint16_t side(int value) {
  return static_cast<std::uint16_t>(std::clamp(value, 0, 0xFFFF));
}

int limited(int side, int wanted) {
  return wanted == 0 ? side : std::min(side, std::max(wanted, kMinWantedSide));
}

protocol::Announcement announcement(const Camera& camera, const CapturePlan& plan) {
  CameraAnnounced format;
  format.vendorId = camera.info.vendorId;
  format.productId = camera.info.productId;
  format.width = side(plan.width);
  format.height = side(plan.height);
  format.frameInterval = static_cast<std::uint32_t>(plan.frameInterval());
  format.encoding = plan.encoding;
  return {camera.number, format, camera.info.id, camera.info.name};
}

CameraFrame fieldsOf(const CapturedFrame& frame) {
  CameraFrame fields;
  fields.width = side(frame.width);
  fields.height = side(frame.height);
  fields.encoding = frame.encoding;
  fields.flags = frame.key ? kFrameIsKey : 0;
  return fields;
}

}  // namespace

Share::Share(CameraStream& stream, std::shared_ptr<VmTransport> transport, const PolicyRule& rule)
    : m_stream(stream),
      m_transport(std::move(transport)),
      m_rule(rule),
      m_showsH264(m_transport->showsH264()),
      m_sizeChanges(stream.io(), kMaxSizeChanges, kSizeChangesTime) {
  m_delivery->share = this;
}

Share::~Share() {
  stop();
  m_delivery->share = nullptr;
}

void Share::announce() {
  if (!m_transport->ready()) return;
  const CapturePlan plan = m_stream.planFor(request());
  m_transport->send(
      {protocol::announcedMessage(m_transport->dataType(), announcement(camera(), plan))});
}

void Share::remove(const std::string& why) {
  stop();
  if (!m_transport->ready()) return;
  m_transport->send({protocol::removedMessage(m_transport->dataType(), camera().number, why)});
}

void Share::setRule(const PolicyRule& rule) {
  if (rule == m_rule) return;
  m_rule = rule;
  m_rateControl.reset();
  if (started()) m_stream.refresh();
}

void Share::start() {
  if (started()) return;
  m_rateControl.reset();
  m_line.reset();
  consume();
}

void Share::consume() {
  m_state = State::Consuming;
  m_delivery->needsKeyFrame = true;
  m_delivery->droppedSince = false;
  m_delivery->lastLeft = steadyMicroseconds();
  m_stream.add(*this);
  m_stream.requestKeyFrame();
}

void Share::stop() {
  if (!started()) return;
  m_state = State::Stopped;
  m_sizeChanges.cancel();
  m_wantedSize = m_lastSize = {};
  m_stream.remove(*this);
}

void Share::requestKeyFrame() {
  if (started()) m_stream.requestKeyFrame();
}

void Share::onStatistics(const CameraStatistics& statistics) {
  if (!started() || !m_rule.followVm) return;
  const double before = m_rateControl.limit();
  m_rateControl.update(statistics, m_delivery->counters.offered, steadyMicroseconds());
  if (m_rateControl.limit() == before) return;
  base::logDebug("camera '{}': rate limit now {} per second", camera().info.id,
                 m_rateControl.limit());
  m_stream.refresh();
}

void Share::onReceived(std::uint32_t sequence) {
  if (!started()) return;
  m_line.onReceived(sequence, steadyMicroseconds(), m_stream.wantedRate());
  if (m_state == State::Stalled && sequence > 0) consume();
  m_stream.updateHold();
}

std::string Share::line() const {
  if (!started()) return "";
  if (!m_rule.followVm) return "not followed, as the policy says";
  if (!m_line.reports()) return "the VM does not tell what it receives";
  if (m_line.target() == 0) return "no limit";
  return base::text("{:.0f} kbit/s, as frames waited {} ms for it", m_line.target() * 8 / 1000,
                    m_line.waited() / 1000);
}

std::int64_t Share::interval() const {
  const std::int64_t wanted = std::int64_t{m_rule.intervalMs} * 1000;
  return m_rule.followVm ? std::max(wanted, m_rateControl.interval()) : wanted;
}

CaptureRequest Share::request() const {
  CaptureRequest request{m_rule, interval(), m_rule.followVm ? m_line.target() : 0};
  PolicyRule& rule = request.rule;
  if (rule.encoding == SentEncoding::Auto) {
    rule.encoding = m_transport->showsH264() ? SentEncoding::H264 : SentEncoding::Mjpg;
  }
  // Of several VMs each scales for itself.
  if (m_stream.consumers() <= 1) {
    rule.maxWidth = limited(rule.maxWidth, m_wantedSize.width);
    rule.maxHeight = limited(rule.maxHeight, m_wantedSize.height);
  }
  return request;
}

void Share::limitSize(FrameSize size) {
  if (size == std::exchange(m_lastSize, size)) return;
  m_sizeChanges.apply([this, size] {
    m_wantedSize = size;
    if (started()) m_stream.refresh();
  });
}

void Share::onEncodingsChanged() {
  const bool shows = m_transport->showsH264();
  if (std::exchange(m_showsH264, shows) == shows || m_rule.encoding != SentEncoding::Auto) return;
  started() ? m_stream.refresh() : announce();
}

bool Share::onFrame(const CapturedFrame& frame) {
  const bool maySkip = frame.encoding == kEncodingMjpg;
  if (maySkip && !m_pacer.due(static_cast<std::int64_t>(frame.time), interval())) return true;
  const bool waits = waitsForLine(frame);
  if (!waits && m_delivery->needsKeyFrame && !frame.key) {
    if (lineFullFor() == 0) m_stream.requestKeyFrame();
  } else if (!waits) {
    send(frame);
  }
  if (!isStalled()) return true;
  base::logWarning("camera '{}' is paused for {}, which is stalled", camera().info.id,
                   m_transport->name());
  m_state = State::Stalled;
  return false;
}

std::int64_t Share::lineFullFor() {
  return m_rule.followVm ? m_line.fullFor(steadyMicroseconds()) : 0;
}

// H.264 bears gaps only before a key frame, so what has been encoded is sent, unless the camera
// goes on for others. Now and then a frame is sent anyway, to find out.
bool Share::waitsForLine(const CapturedFrame& frame) {
  const std::int64_t full = lineFullFor();
  if (full == 0 || steadyMicroseconds() - m_lastOffered > kHeldInterval / 2) return false;
  if (frame.encoding == kEncodingMjpg) return true;
  if (full < kLongestWait) return false;
  return m_delivery->needsKeyFrame = true;
}

bool Share::isStalled() const {
  const std::int64_t now = steadyMicroseconds();
  if (m_rule.followVm && m_line.silentFor(now) > kStallTimeout) return true;
  return m_delivery->droppedSince && now - m_delivery->lastLeft > kStallTimeout;
}

void Share::send(const CapturedFrame& frame) {
  m_delivery->needsKeyFrame = false;
  m_lastOffered = steadyMicroseconds();
  ++m_delivery->counters.offered;
  protocol::Message head =
      protocol::frameMessage(m_transport->dataType(), camera().number, frame.time, fieldsOf(frame));
  head.announceRest(frame.data.bytes.size());
  m_transport->send(
      {std::move(head), true,
       [delivery = m_delivery](protocol::Message& message) { delivery->onLeave(message); },
       [delivery = m_delivery] { delivery->onDrop(); }, frame.data});
}

void Share::Delivery::onLeave(protocol::Message& frame) {
  const auto sequence = static_cast<std::uint32_t>(++counters.frames);
  const std::size_t size = kHeaderSize + frame.header().length;
  counters.bytes += size;
  droppedSince = false;
  lastLeft = steadyMicroseconds();
  const bool isAsked = share != nullptr && share->onFrameLeft(sequence, size);
  protocol::stampFrame(frame, sequence, isAsked);
}

void Share::Delivery::onDrop() {
  ++counters.dropped;
  droppedSince = true;
  needsKeyFrame = true;
}

bool Share::onFrameLeft(std::uint32_t sequence, std::size_t size) {
  const bool isAsked = m_line.onSent(sequence, size, m_delivery->lastLeft);
  if (m_state == State::Stalled && !isStalled()) consume();
  return isAsked;
}

}  // namespace lumsar::service
