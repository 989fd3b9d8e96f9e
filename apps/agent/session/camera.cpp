// One announced camera. Owned by CameraTable.
// Bound to the channel's thread.
#include "session/camera.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "app/log.h"
#include "outputs/jpeg.h"

namespace lumsar::agent {
namespace {

using namespace std::chrono_literals;

// A page that is loaded again must not switch the camera off and on.
constexpr auto kStopAfter = 500ms;
constexpr auto kStatisticsEvery = 1s;
constexpr auto kKeyRequestEvery = 500ms;

std::uint32_t narrow(std::uint64_t value) {
  constexpr std::uint64_t kMost = std::numeric_limits<std::uint32_t>::max();
  return static_cast<std::uint32_t>(std::min(value, kMost));
}

}  // namespace

Camera::Camera(CameraInfo info, int handle, std::vector<std::unique_ptr<Sink>> sinks, Ask ask)
    : m_info(std::move(info)), m_handle(handle), m_sinks(std::move(sinks)), m_ask(std::move(ask)) {
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
  const std::uint32_t gap = m_sequence.gapBefore(format->sequence);
  ++m_all.frames;
  m_all.bytes += body.size();
  m_all.lost += gap;
  const std::uint64_t latency =
      frame->arrived > frame->captured ? frame->arrived - frame->captured : 0;
  m_latencies.add(latency);
  m_lastSecond.add(latency);
  frame->picture.assign(body.begin(), body.end());
  if (format->encoding == kEncodingH264 ? !usableVideo(*frame, gap != 0) : !usable(*frame)) {
    ++m_all.bad;
    return;
  }
  for (const auto& sink : m_sinks) {
    if (sink->wanted()) sink->show(frame);
  }
}

bool Camera::usable(const Frame& frame) {
  const bool good = frame.format.encoding == kEncodingMjpg && isWholeJpeg(frame.picture);
  if (!good && !std::exchange(m_saidBad, true)) {
    logWarning("camera \"", m_info.name, "\": dropped a picture (", frame.picture.size(),
               " bytes, ", encodingName(frame.format.encoding),
               ") that is no whole JPEG; more of them are only counted");
  }
  return good;
}

// After a gap nothing can be shown before the next picture that stands by itself.
bool Camera::usableVideo(const Frame& frame, bool gap) {
  if ((frame.format.flags & kFrameIsKey) != 0) {
    m_needsKey = false;
  } else if (gap) {
    m_needsKey = true;
  }
  if (m_needsKey) requestKeyFrame();
  return !m_needsKey && !frame.picture.empty();
}

void Camera::requestKeyFrame() {
  const auto now = Clock::now();
  if (now - m_lastKeyRequest < kKeyRequestEvery) return;
  m_lastKeyRequest = now;
  m_ask(CameraDataKind::KeyFrameRequest, {});
}

void Camera::update(Clock::time_point now) {
  const unsigned before = std::exchange(m_wanting, wanting());
  if (m_wanting > 0) {
    m_unwantedSince = now;
    if (!m_started) {
      start(now);
    } else if (m_wanting > before && m_format.encoding == kEncodingH264) {
      requestKeyFrame();
    }
  } else if (m_started && now - m_unwantedSince >= kStopAfter) {
    logInfo("camera \"", m_info.name, "\": nobody looks any more, letting it go");
    stop(true);
  }
  if (m_started && now - m_lastStatistics >= kStatisticsEvery) sendStatistics(now);
}

void Camera::start(Clock::time_point now) {
  m_started = true;
  m_needsKey = true;
  m_sequence.restart();
  m_lastSecond.clear();
  m_lastStatistics = now;
  m_atStart = m_all;
  m_droppedAtStart = dropped();
  m_takenBefore = taken();
  logInfo("camera \"", m_info.name, "\": somebody looks, asking for pictures");
  m_ask(CameraDataKind::Start, {});
}

void Camera::stop(bool tellService) {
  m_started = false;
  if (tellService) m_ask(CameraDataKind::Stop, {});
}

void Camera::sendStatistics(Clock::time_point now) {
  using namespace std::chrono;
  const auto passed = static_cast<std::uint64_t>(
      std::max<std::int64_t>(1, duration_cast<milliseconds>(now - m_lastStatistics).count()));
  const std::uint64_t takenNow = taken();
  m_rate = narrow((takenNow - m_takenBefore) * 1'000'000 / passed);
  m_takenBefore = takenNow;
  m_lastStatistics = now;
  CameraStatistics statistics;
  statistics.frames = m_all.frames - m_atStart.frames;
  statistics.bytes = m_all.bytes - m_atStart.bytes;
  statistics.lost = narrow(m_all.lost - m_atStart.lost);
  statistics.dropped = narrow(dropped() - m_droppedAtStart);
  statistics.latency = narrow(m_lastSecond.median());
  statistics.rate = m_rate;
  m_lastSecond.clear();
  m_ask(CameraDataKind::Statistics, bytesOf(statistics));
}

void Camera::retire(bool tellService) {
  if (m_started) stop(tellService);
  m_present = false;
  for (const auto& sink : m_sinks) sink->close();
}

bool Camera::sinksClosed() const {
  return std::ranges::all_of(m_sinks, [](const auto& sink) { return sink->closed(); });
}

unsigned Camera::wanting() const {
  return static_cast<unsigned>(
      std::ranges::count_if(m_sinks, [](const auto& sink) { return sink->wanted(); }));
}

std::uint64_t Camera::dropped() const {
  std::uint64_t sum = m_all.bad;
  for (const auto& sink : m_sinks) sum += sink->report().dropped;
  return sum;
}

// The quickest sink counts: the others drop what they cannot follow.
std::uint64_t Camera::taken() const {
  std::uint64_t most = 0;
  for (const auto& sink : m_sinks) most = std::max(most, sink->report().taken);
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
  status.latencyWorst = m_latencies.worst();
  for (const auto& sink : m_sinks) {
    const SinkReport report = sink->report();
    status.sinks.taken += report.taken;
    status.sinks.files += report.files;
    for (auto field : {&SinkReport::path, &SinkReport::device, &SinkReport::error}) {
      if (!(report.*field).empty()) status.sinks.*field = report.*field;
    }
  }
  return status;
}

}  // namespace lumsar::agent
