#include "session/camera.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "base/log.h"
#include "protocol/jpeg_segments.h"

namespace lumsar::agent {
namespace {

using namespace std::chrono_literals;

// Loading a page again must not switch the camera off and on.
constexpr auto kStopDelay = 500ms;
constexpr auto kStatisticsInterval = 1s;
constexpr auto kKeyRequestInterval = 500ms;

std::uint32_t narrow(std::uint64_t value) {
  constexpr std::uint64_t kMax = std::numeric_limits<std::uint32_t>::max();
  return static_cast<std::uint32_t>(std::min(value, kMax));
}

}  // namespace

Camera::Camera(protocol::Announcement info, int handle, std::vector<std::unique_ptr<Sink>> sinks,
               Ask ask, FrameBudget& budget)
    : m_info(std::move(info)),
      m_handle(handle),
      m_sinks(std::move(sinks)),
      m_ask(std::move(ask)),
      m_budget(budget) {
  m_format.width = m_info.format.width;
  m_format.height = m_info.format.height;
  m_format.encoding = m_info.format.encoding;
}

void Camera::takeFrame(const CameraDataHeader& header, Bytes body) {
  if (!m_started) return;  // on its way when the camera was stopped
  auto frame = std::make_shared<Frame>();
  frame->arrived = cameraClock();
  frame->captured = header.time;
  const auto format = take<CameraFrame>(body);
  if (!format) {
    ++m_all.bad;
    return;
  }
  frame->format = m_format = *format;
  if ((format->flags & kFrameIsAsked) != 0) tellReceived(format->sequence);
  const std::uint32_t gap = m_sequence.gapBefore(format->sequence);
  ++m_all.frames;
  m_all.bytes += body.size();
  m_all.lost += gap;
  const std::uint64_t latency =
      frame->arrived > frame->captured ? frame->arrived - frame->captured : 0;
  m_latencies.add(latency);
  m_lastSecond.add(latency);
  frame->share = m_budget.take(body.size());
  if (!frame->share) {
    ++m_refused;
    m_needsKey = true;  // what follows cannot be decoded without it
    return;
  }
  frame->data.assign(body.begin(), body.end());
  if (!isShowable(*frame, gap != 0)) {
    ++m_all.bad;
    return;
  }
  for (const auto& sink : m_sinks) {
    if (sink->hasConsumer()) sink->deliver(frame);
    if (sink->needsKeyFrame()) requestKeyFrame();
  }
}

bool Camera::isShowable(const Frame& frame, bool gap) {
  return frame.format.encoding == kEncodingH264 ? isShowableVideo(frame, gap)
                                                : isShowableJpeg(frame);
}

bool Camera::isShowableJpeg(const Frame& frame) {
  const bool good = frame.format.encoding == kEncodingMjpg && protocol::isCompleteJpeg(frame.data);
  if (!good && !std::exchange(m_loggedBad, true)) {
    base::logWarning(
        "camera \"{}\": dropped a frame ({} bytes, {}) that is not a complete JPEG; further ones "
        "are "
        "only counted",
        m_info.name, frame.data.size(), protocol::encodingName(frame.format.encoding));
  }
  return good;
}

// After a gap nothing can be shown before the next independently decodable frame.
bool Camera::isShowableVideo(const Frame& frame, bool gap) {
  if ((frame.format.flags & kFrameIsKey) != 0) {
    m_needsKey = false;
  } else if (gap) {
    m_needsKey = true;
  }
  if (m_needsKey) requestKeyFrame();
  return !m_needsKey && !frame.data.empty();
}

void Camera::requestKeyFrame() {
  const auto now = Clock::now();
  if (now - m_lastKeyRequest < kKeyRequestInterval) return;
  m_lastKeyRequest = now;
  m_ask(CameraDataKind::KeyFrameRequest, {});
}

void Camera::update(Clock::time_point now) {
  const unsigned before = std::exchange(m_consumers, consumers());
  if (m_consumers > 0 || before > 0) m_lastConsumed = now;
  if (m_consumers > 0) {
    sendWantedSize();
    if (!m_started) {
      start(now);
    } else if (m_consumers > before && m_format.encoding == kEncodingH264) {
      requestKeyFrame();
    }
  } else if (m_started && now - m_lastConsumed >= kStopDelay) {
    base::logInfo("camera \"{}\": no longer has a consumer, stopping it", m_info.name);
    stop(true);
  }
  if (m_started && now - m_lastStatistics >= kStatisticsInterval) sendStatistics(now);
}

void Camera::tellReceived(std::uint32_t sequence) {
  m_ask(CameraDataKind::Received, protocol::bytesOf(CameraReceived{sequence}));
}

// One consumer's size is made where the camera is; of several, each has to make its own.
std::optional<FrameSize> Camera::wantedSize() const {
  if (m_consumers != 1) return std::nullopt;
  const auto consumed =
      std::ranges::find_if(m_sinks, [](const auto& sink) { return sink->hasConsumer(); });
  if (consumed == m_sinks.end()) return std::nullopt;
  const auto size = (*consumed)->wantedSize();
  const FrameSize own = {m_info.format.width, m_info.format.height};
  return size == own ? std::nullopt : size;
}

void Camera::sendWantedSize() {
  const auto size = wantedSize();
  if (size == m_toldSize) return;
  m_toldSize = size;
  const FrameSize told = size.value_or(FrameSize{});
  m_ask(CameraDataKind::WantedSize, protocol::bytesOf(CameraSize{told.width, told.height}));
}

Clock::time_point Camera::due() const {
  if (!m_started) return Clock::time_point::max();
  const auto reports = m_lastStatistics + kStatisticsInterval;
  return m_consumers > 0 ? reports : std::min(reports, m_lastConsumed + kStopDelay);
}

void Camera::start(Clock::time_point now) {
  m_started = true;
  m_needsKey = true;
  m_sequence.restart();
  m_lastSecond.clear();
  m_lastStatistics = now;
  m_atStart = m_all;
  m_droppedAtStart = dropped();
  m_deliveredBefore = delivered();
  base::logInfo("camera \"{}\": has a consumer, starting it", m_info.name);
  m_ask(CameraDataKind::Start, {});
  tellReceived(0);
}

void Camera::repeatStart() {
  if (!m_started) return;
  m_toldSize.reset();
  sendWantedSize();
  start(Clock::now());
}

void Camera::stop(bool tellService) {
  m_started = false;
  m_toldSize.reset();
  if (tellService) m_ask(CameraDataKind::Stop, {});
}

void Camera::sendStatistics(Clock::time_point now) {
  using namespace std::chrono;
  const auto passed = static_cast<std::uint64_t>(
      std::max<std::int64_t>(1, duration_cast<milliseconds>(now - m_lastStatistics).count()));
  const std::uint64_t deliveredNow = delivered();
  m_rate = narrow((deliveredNow - m_deliveredBefore) * 1'000'000 / passed);
  m_deliveredBefore = deliveredNow;
  m_lastStatistics = now;
  CameraStatistics statistics;
  statistics.frames = m_all.frames - m_atStart.frames;
  statistics.bytes = m_all.bytes - m_atStart.bytes;
  statistics.lost = narrow(m_all.lost - m_atStart.lost);
  statistics.dropped = narrow(dropped() - m_droppedAtStart);
  statistics.latency = narrow(m_lastSecond.median());
  statistics.rate = m_rate;
  m_lastSecond.clear();
  m_ask(CameraDataKind::Statistics, protocol::bytesOf(statistics));
}

void Camera::retire(bool tellService) {
  if (m_started) stop(tellService);
  m_present = false;
  for (const auto& sink : m_sinks) sink->close();
}

bool Camera::sinksClosed() const {
  return std::ranges::all_of(m_sinks, [](const auto& sink) { return sink->closed(); });
}

unsigned Camera::consumers() const {
  return static_cast<unsigned>(
      std::ranges::count_if(m_sinks, [](const auto& sink) { return sink->hasConsumer(); }));
}

std::uint64_t Camera::dropped() const {
  std::uint64_t sum = m_all.bad + m_refused;
  for (const auto& sink : m_sinks) sum += sink->report().dropped;
  return sum;
}

// The fastest sink counts: the others drop frames.
std::uint64_t Camera::delivered() const {
  std::uint64_t most = 0;
  for (const auto& sink : m_sinks) most = std::max(most, sink->report().delivered);
  return most;
}

CameraStatus Camera::status() const {
  CameraStatus status;
  status.handle = m_handle;
  status.info = m_info;
  status.present = m_present;
  status.started = m_started;
  status.width = m_format.width;
  status.height = m_format.height;
  status.encoding = m_format.encoding;
  status.counters = m_all;
  status.dropped = dropped();
  status.rate = m_rate;
  status.latencyMedian = m_latencies.median();
  status.latency99 = m_latencies.percentile(99);
  status.latencyWorst = m_latencies.worst();
  for (const auto& sink : m_sinks) {
    const SinkReport report = sink->report();
    status.sinks.delivered += report.delivered;
    status.sinks.files += report.files;
    for (auto field : {&SinkReport::path, &SinkReport::error}) {
      if (!(report.*field).empty()) status.sinks.*field = report.*field;
    }
    if (report.device.empty()) continue;
    if (!status.sinks.device.empty()) status.sinks.device += ',';
    status.sinks.device += report.device;
  }
  return status;
}

}  // namespace lumsar::agent
