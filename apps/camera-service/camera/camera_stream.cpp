// CameraStream: see camera_stream.h. Runs on the io_context's thread.
#include "camera/camera_stream.h"

#include <algorithm>
#include <stdexcept>

#include "app/log.h"
#include "lumsar/camera_data.h"

namespace lumsar::service {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds kBetweenStarts{500};
constexpr milliseconds kFirstPause{1000};
constexpr milliseconds kLongestPause{30000};
constexpr milliseconds kSilence{5000};  // without a frame for this long a camera counts as stuck

using Clock = asio::steady_timer::clock_type;

}  // namespace

CameraStream::CameraStream(asio::io_context& io, asio::thread_pool& cameraThreads,
                           const Camera& camera, OnTrouble onTrouble)
    : m_io(io),
      m_cameraTurns(asio::make_strand(cameraThreads)),
      m_camera(camera),
      m_onTrouble(std::move(onTrouble)),
      m_timer(io) {}

void CameraStream::add(FrameReader& reader) {
  if (std::ranges::find(m_readers, &reader) != m_readers.end()) return;
  m_readers.push_back(&reader);
  if (m_readers.size() == 1) {
    startSoon();
  } else {
    refresh();
  }
}

void CameraStream::remove(FrameReader& reader) {
  if (std::erase(m_readers, &reader) > 0) onReaderGone();
}

void CameraStream::onReaderGone() {
  if (m_readers.empty()) {
    stop();
    m_trouble.clear();
    m_failed.clear();
  } else {
    refresh();
  }
}

void CameraStream::refresh() {
  if (!m_capture) return;
  CaptureRequest all = m_readers.front()->request();
  for (const FrameReader* reader : m_readers) all = combined(all, reader->request());
  const CapturePlan plan = planFor(all);
  if (m_capture->adapt(plan)) return;
  stop();
  startSoon();
}

void CameraStream::requestKeyFrame() {
  if (m_capture) m_capture->requestKeyFrame();
}

CapturePlan CameraStream::planFor(const CaptureRequest& request) const {
  std::vector<CameraFormat> formats = m_camera.info.formats;
  std::erase_if(formats, [this](const CameraFormat& format) {
    return std::ranges::find(m_failed, format) != m_failed.end();
  });
  return planCapture(formats, request);
}

CameraStream::Counters CameraStream::counters() const {
  Counters counters = m_counters;
  if (m_capture) counters.encodeTime = m_capture->encodeTime();
  return counters;
}

void CameraStream::startSoon() {
  const auto since = Clock::now() - m_lastStart;
  if (since >= kBetweenStarts) return start();
  startAfter(std::chrono::ceil<milliseconds>(kBetweenStarts - since));
}

void CameraStream::startAfter(milliseconds pause) {
  m_timer.expires_after(pause);
  m_timer.async_wait([this](asio::error_code stopped) {
    if (stopped || m_readers.empty() || m_capture) return;
    start();
  });
}

void CameraStream::start() {
  if (!m_camera.present) return;
  m_lastStart = m_lastSign = Clock::now();
  CaptureRequest all = m_readers.front()->request();
  for (const FrameReader* reader : m_readers) all = combined(all, reader->request());
  const CapturePlan plan = planFor(all);
  m_tried = plan.source;
  if (plan.source.width == 0) return onCaptureFailed("it offers no format that can be read here");
  try {
    m_capture = Capture::start(m_io, m_cameraTurns, m_camera.info.device.get(), plan, *this);
  } catch (const std::runtime_error& error) {
    return onCaptureFailed(error.what());
  }
  logInfo("camera '", m_camera.info.id, "' is on: ", plan.source.encoding, " ", plan.source.width,
          "x", plan.source.height, " from the camera, ",
          plan.encoding == kEncodingH264 ? "H264 " : "MJPG ", plan.width, "x", plan.height,
          " sent");
  watch();
}

void CameraStream::stop() {
  m_timer.cancel();
  m_pause = milliseconds(0);
  if (!m_capture) return;
  m_counters.encodeTime = m_capture->encodeTime();
  m_capture.reset();
  logInfo("camera '", m_camera.info.id, "' is off");
}

void CameraStream::watch() {
  m_timer.expires_at(silentAt());
  m_timer.async_wait([this, watched = std::weak_ptr(m_capture)](asio::error_code stopped) {
    if (stopped || !m_capture || watched.lock() != m_capture) return;
    if (Clock::now() >= silentAt()) return onCaptureFailed("it delivers no pictures");
    watch();
  });
}

// By the interval of now: a policy may have changed it.
Clock::time_point CameraStream::silentAt() const {
  const auto interval =
      std::chrono::ceil<milliseconds>(std::chrono::microseconds(m_capture->plan().frameInterval()));
  return m_lastSign + std::max(kSilence, 3 * interval);
}

void CameraStream::onFrame(const CapturedFrame& frame) {
  m_lastSign = Clock::now();
  ++m_counters.frames;
  m_counters.bytes += frame.picture.size();
  m_pause = milliseconds(0);
  m_trouble.clear();
  const auto takesNoMore = [&](FrameReader* reader) { return !reader->onFrame(frame); };
  if (std::erase_if(m_readers, takesNoMore) > 0) onReaderGone();
}

void CameraStream::onCaptureFailed(const std::string& why) {
  const bool first = m_pause.count() == 0;
  const milliseconds pause = first ? kFirstPause : std::min(2 * m_pause, kLongestPause);
  stop();
  m_pause = pause;
  m_trouble = why;
  if (m_lastSign == m_lastStart) leaveOutTriedFormat();
  logWarning("camera '", m_camera.info.id, "' failed: ", why, "; next try in ", pause.count(),
             " ms");
  startAfter(pause);
  if (first) m_onTrouble(m_camera, why);
}

// It may be the others that work; when none does, all are tried again.
void CameraStream::leaveOutTriedFormat() {
  m_failed.push_back(m_tried);
  if (planFor({}).source.width == 0) m_failed.clear();
}

CameraStream& StreamTable::of(const Camera& camera) {
  auto& stream = m_streams[camera.number];
  if (!stream) {
    stream = std::make_unique<CameraStream>(m_io, m_cameraThreads, camera, m_onTrouble);
  }
  return *stream;
}

const CameraStream* StreamTable::find(std::uint32_t number) const {
  const auto found = m_streams.find(number);
  return found == m_streams.end() ? nullptr : found->second.get();
}

}  // namespace lumsar::service
