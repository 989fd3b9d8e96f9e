#include "outputs/pipewire/pipewire_sink.h"

#include <utility>

#include "base/errors.h"
#include "base/text/utf8.h"

namespace lumsar::agent {
namespace {

using namespace std::chrono_literals;

// A peer may change the size with each frame; consumers are asked to follow no more often.
constexpr auto kOfferInterval = 1s;
// Before the first placard and between two: most cameras start sooner.
constexpr auto kFirstNotice = 700ms;
constexpr std::chrono::microseconds kNoSignalInterval = 3s;  // at least three frames
constexpr auto kRetryInterval = 5s;             // for a node that PipeWire does not want
constexpr FrameSize kAssumedSize = {640, 480};  // of a camera that does not tell its own

OfferedFormat formatOf(const CameraAnnounced& camera) {
  OfferedFormat format{
      {camera.width, camera.height}, camera.encoding, camera.frameInterval, Decoder::isUsable()};
  if (camera.width == 0 || camera.height == 0) format.size = kAssumedSize;
  return format;
}

}  // namespace

PipewireSink::PipewireSink(PipewireLoop& loop, NodeNames& names,
                           const protocol::Announcement& camera, std::function<void()> changed)
    : m_loop(loop),
      m_names(names),
      m_identity{names.take(camera.id), camera.name},
      m_changed(std::move(changed)),
      m_frames([this] { m_loop.wake(); }),
      m_format(formatOf(camera.format)) {
  m_loop.add(*this);
}

PipewireSink::~PipewireSink() {
  PipewireSink::close();
  std::unique_lock lock(m_mutex);
  m_hasEnded.wait(lock, [this] { return m_closed; });
}

// The name is free at once: a camera that comes again gets the same.
void PipewireSink::close() {
  if (m_closing.exchange(true)) return;
  m_names.giveBack(m_identity.name);
  m_loop.wake();
}

bool PipewireSink::closed() const {
  const std::lock_guard lock(m_mutex);
  return m_closed;
}

void PipewireSink::ended() {
  destroyStream();
  const std::lock_guard lock(m_mutex);  // while it is held, this object lives
  m_closed = true;
  m_changed();
  m_hasEnded.notify_all();
}

void PipewireSink::update(pw_core* core) {
  if (core == nullptr) {
    m_failure.clear();  // that it has ended
    m_retryTime = {};   // of the next connection nothing is known
    return destroyStream();
  }
  if (!m_failure.empty()) endStream();
  if (!m_stream && std::chrono::steady_clock::now() >= m_retryTime) createStream(*core);
  if (!m_stream) return m_frames.clear();
  followFormat();
  if (const std::string problem = m_frames.takeProblem(); !problem.empty()) reportProblem(problem);
  if (FramePtr frame = m_frames.take()) m_stream->send(std::move(frame));
  checkSignal();
}

void PipewireSink::createStream(pw_core& core) {
  try {
    m_stream = std::make_unique<CameraStream>(core, m_identity, m_format,
                                              static_cast<CameraStreamOwner&>(*this));
  } catch (const base::Failure& failure) {
    m_failure = failure.what();
    return endStream();
  }
  clearError();
  if (std::exchange(m_loggedName, true)) return;
  base::logInfo("camera \"{}\" is the PipeWire node {}", m_identity.description, m_identity.name);
}

void PipewireSink::endStream() {
  reportProblem(base::text("PipeWire does not serve it: {}", base::clean(m_failure)));
  m_failure.clear();
  destroyStream();
  m_retryTime = std::chrono::steady_clock::now() + kRetryInterval;
  m_loop.updateIn(kRetryInterval);
}

void PipewireSink::destroyStream() {
  m_stream.reset();
  chosen({});
  consumed(false);
}

void PipewireSink::consumed(bool isConsumed) {
  if (m_hasConsumer.exchange(isConsumed) == isConsumed) return;
  base::logDebug("{}: {}", m_identity.name, isConsumed ? "has a consumer" : "has no consumer");
  if (!isConsumed) m_frames.clear();  // the next one begins with a new frame
  m_needsKey = false;
  if (isConsumed) {
    m_notice = Notice::CameraStarts;
    m_lastShown = std::chrono::steady_clock::now();
    m_loop.updateIn(kFirstNotice);
    clearError();
    m_loggedProblems.clear();
  }
  m_changed();
}

void PipewireSink::chosen(const std::optional<ChosenFormat>& format) {
  m_chosen = format;
  if (!isRawChosen()) return m_frames.decodeTo({});
  m_frames.decodeTo(RawFormat{format->encoding, format->size, isFullRange(m_format)});
}

void PipewireSink::sent() {
  m_lastShown = std::chrono::steady_clock::now();
  m_notice = Notice::NoSignal;
  ++m_delivered;
  m_needsKey = false;
  clearError();
}

// Raw frames keep the size that their consumer has chosen, whatever the camera's have.
void PipewireSink::followFormat() {
  const auto frame = m_frames.cameraFormat();
  if (!frame || isRawChosen()) return;
  OfferedFormat format = m_format;
  format.size = {frame->width, frame->height};
  format.encoding = frame->encoding;
  const auto now = std::chrono::steady_clock::now();
  if (format.sameFrames(m_format) || now - m_lastOffer < kOfferInterval) return;
  m_lastOffer = now;
  m_format = format;
  m_stream->offer(m_format);
}

// A program that gets nothing shows nothing, or goes on showing the last frame.
void PipewireSink::checkSignal() {
  if (!m_hasConsumer || !m_chosen || !hasPlacard(m_chosen->encoding, m_chosen->size)) return;
  const auto noSignal =
      std::max(kNoSignalInterval, 3 * std::chrono::microseconds(m_format.frameInterval));
  const auto interval = m_notice == Notice::CameraStarts ? kFirstNotice : noSignal;
  const auto now = std::chrono::steady_clock::now();
  const auto due = m_lastShown + interval;
  if (now < due) return m_loop.updateIn(due - now);
  m_lastShown = now;
  m_loop.updateIn(interval);
  m_stream->sendPlacard(m_notice);
}

void PipewireSink::dropped(const std::string& reason) {
  ++m_dropped;
  if (!reason.empty()) reportProblem(reason);
}

void PipewireSink::failed(const std::string& why) {
  m_failure = why;
  m_loop.wake();
}

void PipewireSink::reportProblem(const std::string& problem) {
  {
    const std::lock_guard lock(m_mutex);
    m_error = problem;
  }
  if (!m_loggedProblems.insert(problem).second) return;
  base::logWarning("camera \"{}\": {}", m_identity.description, problem);
}

void PipewireSink::clearError() {
  const std::lock_guard lock(m_mutex);
  m_error.clear();
}

SinkReport PipewireSink::report() const {
  SinkReport report;
  report.delivered = m_delivered;
  report.dropped = m_dropped + m_frames.dropped();
  report.device = m_identity.name;
  const std::lock_guard lock(m_mutex);
  report.error = m_error;
  return report;
}

}  // namespace lumsar::agent
