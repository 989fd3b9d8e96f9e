#include "camera/camera_stream.h"

#include <algorithm>
#include <stdexcept>

#include "base/log.h"
#include "base/system/spare_resources.h"
#include "capture/capture_pipeline.h"
#include "lumsar/camera_data.h"

namespace lumsar::service {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds kBetweenStarts{500};
constexpr milliseconds kBetweenChanges{200};  // for the sake of the lines
// A key frame is large: on a thin line, more of them cost more frames than they bring back.
constexpr milliseconds kBetweenThinKeyFrames{1000};
constexpr milliseconds kBetweenKeyFrames{500};
constexpr milliseconds kSilence{5000};  // without a frame for this long a camera counts as stuck

using Clock = asio::steady_timer::clock_type;

}  // namespace

CameraStream::CameraStream(asio::io_context& io, asio::thread_pool& cameraThreads,
                           const Camera& camera, OnFailure onFailure)
    : m_io(io),
      m_cameraTurns(asio::make_strand(cameraThreads)),
      m_camera(camera),
      m_onFailure(std::move(onFailure)),
      m_timer(io) {}

void CameraStream::add(FrameConsumer& consumer) {
  if (std::ranges::find(m_consumers, &consumer) != m_consumers.end()) return;
  m_consumers.push_back(&consumer);
  if (m_consumers.size() == 1) {
    startSoon();
  } else {
    refresh();
  }
}

void CameraStream::remove(FrameConsumer& consumer) {
  if (std::erase(m_consumers, &consumer) > 0) onConsumerRemoved();
}

void CameraStream::onConsumerRemoved() {
  if (m_consumers.empty()) {
    stop();
    m_error.clear();
    m_failed.clear();
  } else {
    refresh();
  }
}

void CameraStream::refresh() {
  if (!m_capture) return;
  if (m_capture->adapt(planForLines())) return;
  stop();
  startSoon();
}

CaptureRequest CameraStream::combinedRequest() const {
  CaptureRequest all = m_consumers.front()->request();
  for (const FrameConsumer* consumer : m_consumers) all = combined(all, consumer->request());
  return all;
}

// One that comes too early is made later, and one that is lost is made again.
void CameraStream::requestKeyFrame() {
  if (!m_capture) return;
  m_needsKeyFrame = true;
  const auto now = Clock::now();
  const bool thin = m_capture->plan().isThinned;
  if (now - m_lastKeyFrame < (thin ? kBetweenThinKeyFrames : kBetweenKeyFrames)) return;
  m_lastKeyFrame = now;
  m_capture->requestKeyFrame();
}

// JPEG is for those with room, the others leave frames out.
void CameraStream::updateHold() {
  if (!m_capture || m_consumers.empty()) return;
  const auto isFull = [](FrameConsumer* consumer) { return consumer->lineFullFor() > 0; };
  const auto isWaitedFor = [](FrameConsumer* consumer) {
    const std::int64_t time = consumer->lineFullFor();
    return time > 0 && time < kLongestWait;
  };
  const bool h264 = m_capture->plan().encoding == kEncodingH264;
  m_capture->hold(std::ranges::all_of(m_consumers, isFull) ||
                  (h264 && std::ranges::any_of(m_consumers, isWaitedFor)));
}

double CameraStream::wantedRate() const {
  return m_consumers.empty() ? 0 : byteRate(planFor(combinedRequest()), m_detail);
}

CapturePlan CameraStream::planForLines() const {
  const CaptureRequest request = combinedRequest();
  return planForLine(planFor(request), request.lineRate, m_detail,
                     m_capture ? m_capture->plan() : CapturePlan{});
}

// Views change, too.
void CameraStream::followLines() {
  const auto now = Clock::now();
  if (!m_capture || now - m_lastFollowed < kBetweenChanges) return;
  m_lastFollowed = now;
  if (m_capture->plan().isThinned || combinedRequest().lineRate > 0) refresh();
}

void CameraStream::measure(const CapturedFrame& frame) {
  if (!m_capture) return;  // switched off by the frame before
  if (frame.encoding == kEncodingH264) {
    if (frame.key) {
      m_lastKeyFrame = m_lastSign;
      m_needsKeyFrame = false;
    } else if (m_needsKeyFrame) {
      requestKeyFrame();
    }
    return;
  }
  m_detail.add(frame.data.bytes.size(), static_cast<double>(frame.width) * frame.height,
               m_capture->plan().quality);
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
  if (!m_capture) return counters;
  counters.encodeTime = m_capture->frames().encodeTime();
  counters.damaged += m_capture->frames().damaged();
  return counters;
}

std::string CameraStream::treatment() const {
  return m_capture ? m_capture->frames().treatment() : "";
}

void CameraStream::startSoon() {
  const auto since = Clock::now() - m_lastStart;
  if (since >= kBetweenStarts) return start();
  startAfter(std::chrono::ceil<milliseconds>(kBetweenStarts - since));
}

void CameraStream::startAfter(milliseconds delay) {
  m_timer.expires_after(delay);
  m_timer.async_wait([this](asio::error_code stopped) {
    if (stopped || m_consumers.empty() || m_capture) return;
    start();
  });
}

void CameraStream::start() {
  if (!m_camera.present) return;
  m_lastStart = m_lastSign = Clock::now();
  m_tried = {};
  if (!base::hasSpareDescriptors(kPipelineDescriptors))
    return onCaptureFailed(base::tooManyOpenFiles());
  if (!base::hasSpareThreads(kPipelineThreads)) return onCaptureFailed(base::kTooManyThreads);
  const CapturePlan plan = planForLines();
  m_tried = plan.source;
  if (plan.source.width == 0) return onCaptureFailed("it offers no format that can be read here");
  try {
    m_capture = Capture::start(m_io, m_cameraTurns, m_camera.info.device.get(), plan, *this);
  } catch (const std::runtime_error& error) {
    return onCaptureFailed(error.what());
  }
  base::logInfo("camera '{}' is on: {} {}x{} captured, {} {}x{} sent", m_camera.info.id,
                plan.source.encoding, plan.source.width, plan.source.height,
                plan.encoding == kEncodingH264 ? "H264" : "MJPG", plan.width, plan.height);
  watch();
}

void CameraStream::stop() {
  switchOff();
  m_backOff.reset();
}

void CameraStream::switchOff() {
  m_timer.cancel();
  if (!m_capture) return;
  m_counters = counters();
  m_capture.reset();
  base::logInfo("camera '{}' is off", m_camera.info.id);
}

void CameraStream::watch() {
  m_timer.expires_at(silentAt());
  m_timer.async_wait([this, watched = std::weak_ptr(m_capture)](asio::error_code stopped) {
    if (stopped || !m_capture || watched.lock() != m_capture) return;
    if (Clock::now() >= silentAt()) return onCaptureFailed("it delivers no frames");
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
  m_counters.bytes += frame.data.bytes.size();
  m_backOff.reset();
  m_error.clear();
  measure(frame);
  const auto wantsNoMore = [&](FrameConsumer* consumer) { return !consumer->onFrame(frame); };
  if (std::erase_if(m_consumers, wantsNoMore) > 0) onConsumerRemoved();
  updateHold();
  followLines();
}

void CameraStream::onDamagedFrame(const std::string& why) {
  base::logWarning(
      "camera '{}' delivered a frame that {}; such frames are decoded as far as possible, and only "
      "counted from now on",
      m_camera.info.id, why);
}

void CameraStream::onCaptureFailed(const std::string& why) {
  const bool first = m_backOff.isReset();
  const milliseconds delay = m_backOff.next();
  switchOff();
  m_error = why;
  if (m_lastSign == m_lastStart) leaveOutTriedFormat();
  base::logWarning("camera '{}' failed: {}; retrying in {} ms", m_camera.info.id, why,
                   delay.count());
  startAfter(delay);
  if (first) m_onFailure(m_camera, why);
}

// It may be the others that work; when none does, all are tried again.
void CameraStream::leaveOutTriedFormat() {
  m_failed.push_back(m_tried);
  if (planFor({}).source.width == 0) m_failed.clear();
}

CameraStream& StreamTable::of(const Camera& camera) {
  auto& stream = m_streams[camera.number];
  if (!stream) {
    stream = std::make_unique<CameraStream>(m_io, m_cameraThreads, camera, m_onFailure);
  }
  return *stream;
}

const CameraStream* StreamTable::find(std::uint32_t number) const {
  const auto found = m_streams.find(number);
  return found == m_streams.end() ? nullptr : found->second.get();
}

}  // namespace lumsar::service
