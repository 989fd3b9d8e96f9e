// One camera on one video device. Owned by Camera.
// run() and what it calls are the sink's thread.
#include "outputs/v4l2/video_sink.h"

#include <poll.h>

#include <utility>

#include "app/log.h"
#include "outputs/jpeg.h"

namespace lumsar::agent {
namespace {

using namespace std::chrono_literals;

// Programs open all cameras for a moment just to ask what they are; that is no looking.
constexpr auto kProbe = 100ms;
// In case an opening or closing was missed.
constexpr auto kLookAnyway = 5s;
constexpr auto kSearchEvery = 2s;
constexpr auto kAdaptEvery = 1s;
constexpr int kWaitMs = 500;

}  // namespace

VideoSink::VideoSink(VideoPool& pool, CameraInfo camera, std::function<void()> changed)
    : m_pool(pool),
      m_camera(std::move(camera)),
      m_changed(std::move(changed)),
      m_wish{.width = m_camera.format.width,
             .height = m_camera.format.height,
             .encoding = m_camera.format.encoding,
             .frameInterval = m_camera.format.frameInterval},
      m_thread([this] { run(); }) {}

VideoSink::~VideoSink() {
  close();
  m_thread.join();
}

void VideoSink::show(FramePtr frame) {
  {
    const std::lock_guard lock(m_mutex);
    if (std::exchange(m_newest, std::move(frame)) != nullptr) ++m_dropped;
  }
  m_wakeup.wake();
}

void VideoSink::close() {
  m_closing = true;
  m_wakeup.wake();
}

FramePtr VideoSink::takeNewest() {
  const std::lock_guard lock(m_mutex);
  return std::exchange(m_newest, nullptr);
}

void VideoSink::run() {
  while (!m_closing) {
    if (m_device || findDevice()) lookForReaders();
    const FramePtr frame = takeNewest();
    if (frame && m_wanted) ++(write(*frame) ? m_taken : m_dropped);
    waitForSomething();
  }
  m_wanted = false;
  giveDeviceBack();
  m_closed = true;
  m_changed();
}

void VideoSink::waitForSomething() {
  pollfd fds[] = {{m_wakeup.descriptor(), POLLIN, 0},
                  {m_device ? m_device->changes() : -1, POLLIN, 0}};
  if (poll(fds, 2, kWaitMs) <= 0) return;
  m_wakeup.clear();
  if (fds[1].revents == 0) return;
  m_device->clearChanges();
  if (!m_wanted) std::this_thread::sleep_for(kProbe);
  m_lastLook = {};
}

bool VideoSink::findDevice() {
  const auto now = std::chrono::steady_clock::now();
  if (now - m_lastSearch < kSearchEvery) return false;
  m_lastSearch = now;
  const auto path = m_pool.acquire(m_camera.id, m_refused);
  if (!path) {
    if (m_refused.empty()) {
      say("there is no free v4l2loopback device; load the module with more of them (devices=N)");
    }
    m_refused.clear();
    return false;
  }
  {
    const std::lock_guard lock(m_mutex);
    m_path = *path;
  }
  if (openDevice()) {
    logInfo("camera \"", m_camera.name, "\" is ", *path);
    return true;
  }
  m_refused.insert(*path);
  m_lastSearch = {};
  giveDeviceBack();
  return false;
}

bool VideoSink::openDevice() {
  std::string why;
  m_device = m_pool.system().open(m_path, why);
  m_format = m_wish;
  if (!m_device || !m_device->setFormat(m_format, why)) {
    m_device.reset();
    say("cannot use " + m_path + ": " + why);
    return false;
  }
  showGrey();
  m_lastLook = {};
  m_troubles.clear();
  const std::lock_guard lock(m_mutex);
  m_error.clear();
  return true;
}

void VideoSink::giveDeviceBack() {
  m_device.reset();
  const std::lock_guard lock(m_mutex);
  if (!m_path.empty()) m_pool.release(std::exchange(m_path, {}));
}

void VideoSink::lookForReaders() {
  const auto now = std::chrono::steady_clock::now();
  if (now - m_lastLook < kLookAnyway) return;
  m_lastLook = now;
  const bool wanted = m_device->readers() > 0;
  if (m_wanted.exchange(wanted) == wanted) return;
  logDetail(m_path, wanted ? ": opened by a program" : ": no longer open");
  m_changed();
  if (wanted) return;
  if (m_wish.width != m_format.width || m_wish.height != m_format.height) {
    m_device.reset();  // the chance to change the format
    if (!openDevice()) giveDeviceBack();
  } else {
    showGrey();  // the next reader begins with what was written last, not with this one's picture
  }
}

void VideoSink::showGrey() {
  if (m_format.encoding == kEncodingMjpg)
    m_device->write(greyJpeg(m_format.width, m_format.height));
}

bool VideoSink::write(const Frame& frame) {
  adapt(frame.format);
  if (!m_device || !fits(frame)) return false;
  if (m_device->write(frame.picture)) return true;
  say(m_path + " takes no more pictures: " + systemError());
  giveDeviceBack();
  if (m_wanted.exchange(false)) m_changed();
  return false;
}

// A device keeps its format while anybody has it open, so it changes when only this program does.
void VideoSink::adapt(const CameraFrame& format) {
  const bool same = format.width == m_format.width && format.height == m_format.height &&
                    format.encoding == m_format.encoding;
  const auto now = std::chrono::steady_clock::now();
  if (same || !m_device || now - m_lastAdaption < kAdaptEvery) return;
  m_lastAdaption = now;
  m_wish.width = format.width;
  m_wish.height = format.height;
  m_wish.encoding = format.encoding;
  if (m_device->readers() > 0) return;
  m_device.reset();
  if (!openDevice()) giveDeviceBack();
}

// Smaller pictures pass through a device of another size, as every JPEG says its own.
bool VideoSink::fits(const Frame& frame) {
  if (frame.format.encoding == m_format.encoding && frame.picture.size() <= m_format.room) {
    return true;
  }
  say("pictures no longer fit " + m_path +
      ", which keeps its format while it is open; close the "
      "programs that use it and open them again");
  return false;
}

void VideoSink::say(const std::string& trouble) {
  {
    const std::lock_guard lock(m_mutex);
    m_error = trouble;
  }
  if (std::exchange(m_troubles[m_path], trouble) == trouble) return;
  logWarning("camera \"", m_camera.name, "\": ", trouble);
}

SinkReport VideoSink::report() const {
  SinkReport report;
  report.taken = m_taken;
  report.dropped = m_dropped;
  const std::lock_guard lock(m_mutex);
  report.device = m_path;
  report.error = m_error;
  return report;
}

}  // namespace lumsar::agent
