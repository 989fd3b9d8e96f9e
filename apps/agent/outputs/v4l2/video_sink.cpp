#include "outputs/v4l2/video_sink.h"

#include <poll.h>

#include <algorithm>
#include <utility>

#include "base/deadline.h"
#include "base/log.h"

namespace lumsar::agent {
namespace {

using namespace std::chrono_literals;

// Programs open all cameras for a moment just to query them; that is not a consumer.
constexpr auto kQueryTime = 100ms;
// In case a notification was missed, as of a program with a device file of its own.
constexpr auto kReaderCheckInterval = 10s;
constexpr auto kSearchInterval = 2s;
constexpr auto kFormatCheckInterval = 1s;
// Also between one placard and the next; at least three frames.
constexpr std::chrono::microseconds kNoSignalInterval = 3s;

}  // namespace

VideoSink::VideoSink(VideoPool& pool, DeviceFormat chosen, protocol::Announcement camera,
                     std::function<void()> changed)
    : m_pool(pool),
      m_chosen(chosen),
      m_camera(std::move(camera)),
      m_changed(std::move(changed)),
      m_frames([this] { m_wakeUp.wake(); }),
      m_cameraFormat{.width = m_camera.format.width,
                     .height = m_camera.format.height,
                     .encoding = m_camera.format.encoding,
                     .frameInterval = m_camera.format.frameInterval},
      m_thread([this] { run(); }) {}

VideoSink::~VideoSink() {
  close();
  m_thread.join();
}

void VideoSink::close() {
  m_closing = true;
  m_wakeUp.wake();
}

void VideoSink::run() {
  while (!m_closing) {
    if (m_device || findDevice()) checkReaders();
    if (const std::string problem = m_frames.takeProblem(); !problem.empty()) {
      reportProblem(problem);
    }
    const FramePtr frame = m_frames.take();
    if (frame && m_hasConsumer) ++(write(*frame) ? m_delivered : m_dropped);
    checkSignal();
    waitForEvent();
  }
  if (m_hasConsumer.exchange(false)) show(Notice::NoSignal);
  releaseDevice();
  m_closed = true;
  m_changed();
}

void VideoSink::waitForEvent() {
  pollfd fds[] = {{m_wakeUp.get(), POLLIN, 0}, {m_device ? m_device->changes() : -1, POLLIN, 0}};
  auto due = m_device ? m_lastReaderCheck + kReaderCheckInterval : m_lastSearch + kSearchInterval;
  if (m_device && m_hasConsumer) due = std::min(due, m_lastShown + noSignalInterval());
  if (poll(fds, 2, base::pollTimeout(due)) <= 0) return;
  m_wakeUp.clear();
  if (fds[1].revents == 0) return;
  m_device->clearChanges();
  if (!m_hasConsumer) std::this_thread::sleep_for(kQueryTime);
  m_lastReaderCheck = {};
}

bool VideoSink::findDevice() {
  const auto now = std::chrono::steady_clock::now();
  if (now - m_lastSearch < kSearchInterval) return false;
  m_lastSearch = now;
  const auto path = m_pool.acquire(m_camera.id, m_unusable);
  if (!path) {
    if (m_unusable.empty()) {
      reportProblem(
          "there is no free v4l2loopback device; load the module with more of them (devices=N)");
    }
    m_unusable.clear();
    return false;
  }
  {
    const std::lock_guard lock(m_mutex);
    m_path = *path;
  }
  if (openDevice()) {
    base::logInfo("camera \"{}\" is {}", m_camera.name, *path);
    return true;
  }
  m_unusable.insert(*path);
  m_lastSearch = {};
  releaseDevice();
  return false;
}

bool VideoSink::openDevice() {
  std::string why;
  m_device = m_pool.system().open(m_path, why);
  m_deviceFormat = wantedFormat();
  if (!m_device || !m_device->setFormat(m_deviceFormat, why)) {
    m_device.reset();
    reportProblem(base::text("cannot use {}: {}", m_path, why));
    return false;
  }
  show(Notice::CameraStarts);
  decodeFor(m_hasConsumer);
  m_lastReaderCheck = {};
  m_loggedProblems.clear();
  const std::lock_guard lock(m_mutex);
  m_error.clear();
  return true;
}

// A device takes another format when it is opened, and only while no other program has it open.
void VideoSink::reopenDevice() {
  m_device.reset();
  if (!openDevice()) releaseDevice();
}

void VideoSink::releaseDevice() {
  m_device.reset();
  m_frames.decodeTo({});
  const std::lock_guard lock(m_mutex);
  if (!m_path.empty()) m_pool.release(std::exchange(m_path, {}));
}

void VideoSink::checkReaders() {
  const auto now = std::chrono::steady_clock::now();
  if (now - m_lastReaderCheck < kReaderCheckInterval) return;
  m_lastReaderCheck = now;
  const bool hasReaders = m_device->readers() > 0;
  if (m_hasConsumer == hasReaders) return;
  decodeFor(hasReaders);  // before frames come
  m_hasConsumer = hasReaders;
  base::logDebug("{}: {}", m_path, hasReaders ? "opened by a program" : "no longer open");
  m_changed();
  m_lastShown = now;
  if (hasReaders) return;
  if (formatDiffers()) {
    reopenDevice();
  } else {
    show(Notice::CameraStarts);  // the next reader begins with what was written last
  }
}

// Without a reader no decoder runs. The device's size is that of the frames, as it may keep one
// that programs have chosen before.
void VideoSink::decodeFor(bool hasReaders) {
  const FrameSize size = {m_deviceFormat.width, m_deviceFormat.height};
  if (!hasReaders || !isRaw(m_deviceFormat.encoding)) return m_frames.decodeTo({});
  m_frames.decodeTo(RawFormat{m_deviceFormat.encoding, size, false});
}

void VideoSink::show(Notice notice) {
  const FrameSize size = {m_deviceFormat.width, m_deviceFormat.height};
  if (!m_device || !hasPlacard(m_deviceFormat.encoding, size)) return;
  m_device->write(placard(notice, m_deviceFormat.encoding, size));
}

std::chrono::microseconds VideoSink::noSignalInterval() const {
  return std::max(kNoSignalInterval, 3 * std::chrono::microseconds(m_cameraFormat.frameInterval));
}

// A reader that gets nothing goes on showing the last frame.
void VideoSink::checkSignal() {
  const auto now = std::chrono::steady_clock::now();
  if (!m_device || !m_hasConsumer || now - m_lastShown < noSignalInterval()) return;
  m_lastShown = now;
  show(Notice::NoSignal);
}

bool VideoSink::write(const Frame& frame) {
  followFormat();
  if (!m_device || !fits(frame)) return false;
  if (m_device->write(frame.data)) {
    m_lastShown = std::chrono::steady_clock::now();
    const std::lock_guard lock(m_mutex);
    m_error.clear();
    return true;
  }
  reportProblem(base::text("cannot write to {} any more: {}", m_path, base::systemError()));
  releaseDevice();
  if (m_hasConsumer.exchange(false)) m_changed();
  return false;
}

void VideoSink::followFormat() {
  const auto format = m_frames.cameraFormat();
  if (!format) return;
  m_cameraFormat.width = format->width;
  m_cameraFormat.height = format->height;
  m_cameraFormat.encoding = format->encoding;
  const auto now = std::chrono::steady_clock::now();
  if (!m_device || !formatDiffers() || now - m_lastFormatCheck < kFormatCheckInterval) return;
  m_lastFormatCheck = now;
  if (m_device->readers() == 0) reopenDevice();  // otherwise once the last reader has closed it
}

VideoFormat VideoSink::wantedFormat() const {
  VideoFormat format = m_cameraFormat;
  const bool canDecode = m_hasDecoder && isDecodable({format.width, format.height});
  format.encoding = deviceEncoding(m_chosen, format.encoding, canDecode);
  return format;
}

bool VideoSink::formatDiffers() const {
  const VideoFormat wanted = wantedFormat();
  return wanted.width != m_deviceFormat.width || wanted.height != m_deviceFormat.height ||
         wanted.encoding != m_deviceFormat.encoding;
}

// Smaller frames pass through a device of another size, as every JPEG contains its own.
bool VideoSink::fits(const Frame& frame) {
  if (frame.format.encoding == m_deviceFormat.encoding &&
      frame.data.size() <= m_deviceFormat.room) {
    return true;
  }
  reportProblem(
      base::text("frames no longer fit {}, which keeps its format while it is open; close the "
                 "programs that use it and open them again",
                 m_path));
  return false;
}

void VideoSink::reportProblem(const std::string& problem) {
  {
    const std::lock_guard lock(m_mutex);
    m_error = problem;
  }
  if (!m_loggedProblems.emplace(m_path, problem).second) return;
  base::logWarning("camera \"{}\": {}", m_camera.name, problem);
}

SinkReport VideoSink::report() const {
  SinkReport report;
  report.delivered = m_delivered;
  report.dropped = m_dropped + m_frames.dropped();
  const std::lock_guard lock(m_mutex);
  report.device = m_path;
  report.error = m_error;
  return report;
}

}  // namespace lumsar::agent
