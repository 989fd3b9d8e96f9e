#include "outputs/pipewire/camera_stream.h"

#include <spa/buffer/meta.h>

#include <chrono>
#include <utility>

#include "base/errors.h"
#include "base/text/bytes.h"

namespace lumsar::agent {
namespace {

CameraStream& streamOf(void* data) {
  return *static_cast<CameraStream*>(data);
}

pw_properties* propertiesOf(const NodeIdentity& identity) {
  return pw_properties_new(PW_KEY_MEDIA_CLASS, "Video/Source", PW_KEY_MEDIA_ROLE, "Camera",
                           PW_KEY_NODE_NAME, identity.name.c_str(), PW_KEY_NODE_DESCRIPTION,
                           identity.description.c_str(), nullptr);
}

// On the clock that all of PipeWire uses.
std::int64_t now() {
  return std::chrono::nanoseconds(std::chrono::steady_clock::now().time_since_epoch()).count();
}

}  // namespace

const pw_stream_events CameraStream::kEvents = [] {
  pw_stream_events events = {};
  events.version = PW_VERSION_STREAM_EVENTS;
  events.state_changed = [](void* data, pw_stream_state, pw_stream_state state, const char* error) {
    guarded([=] { streamOf(data).stateChanged(state, error); });
  };
  events.param_changed = [](void* data, std::uint32_t id, const spa_pod* param) {
    if (id == SPA_PARAM_Format) guarded([=] { streamOf(data).formatChanged(param); });
  };
  events.remove_buffer = [](void* data, pw_buffer* buffer) {
    guarded([=] { streamOf(data).bufferRemoved(buffer); });
  };
  events.process = [](void* data) { guarded([=] { streamOf(data).process(); }); };
  return events;
}();

CameraStream::CameraStream(pw_core& core, const NodeIdentity& identity, const OfferedFormat& format,
                           CameraStreamOwner& owner)
    : m_owner(owner),
      m_stream(pw_stream_new(&core, identity.name.c_str(), propertiesOf(identity))) {
  if (!m_stream) throw base::Failure(base::systemError());
  pw_stream_add_listener(m_stream.get(), &m_listener, &kEvents, this);
  PodSpace space;
  Pods pods = formatPods(space, format);
  const auto flags =
      static_cast<pw_stream_flags>(PW_STREAM_FLAG_MAP_BUFFERS | PW_STREAM_FLAG_DRIVER);
  const int result = pw_stream_connect(m_stream.get(), PW_DIRECTION_OUTPUT, PW_ID_ANY, flags,
                                       pods.data(), static_cast<std::uint32_t>(pods.size()));
  if (result < 0) throw base::Failure(base::systemError(-result));
}

// Without the listener nothing is told of what the stream does at its end.
CameraStream::~CameraStream() {
  spa_hook_remove(&m_listener);
}

void CameraStream::offer(const OfferedFormat& format) {
  PodSpace space;
  Pods pods = formatPods(space, format);
  pw_stream_update_params(m_stream.get(), pods.data(), static_cast<std::uint32_t>(pods.size()));
}

void CameraStream::stateChanged(pw_stream_state state, const char* error) {
  const bool isConsumed = state == PW_STREAM_STATE_STREAMING;
  if (std::exchange(m_isConsumed, isConsumed) != isConsumed) m_owner.consumed(isConsumed);
  if (!isConsumed) m_continuity.restart();
  if (!isConsumed) dropFrame();
  if (state == PW_STREAM_STATE_ERROR || state == PW_STREAM_STATE_UNCONNECTED) {
    m_owner.failed(error == nullptr ? "its node was removed" : error);
  }
}

void CameraStream::formatChanged(const spa_pod* format) {
  m_continuity.restart();
  m_chosen = readFormat(format);
  m_owner.chosen(m_chosen);
  if (!m_chosen) return;
  PodSpace space;
  Pods pods = bufferPods(space, *m_chosen);
  pw_stream_update_params(m_stream.get(), pods.data(), static_cast<std::uint32_t>(pods.size()));
}

void CameraStream::bufferRemoved(const pw_buffer* buffer) {
  if (m_buffer == buffer) m_buffer = nullptr;
}

void CameraStream::send(FramePtr frame) {
  if (!m_isConsumed) return m_owner.dropped();
  if (!fits(*frame)) return m_owner.dropped("frames do not have the format that a program uses");
  dropFrame();
  m_frame = std::move(frame);
  pw_stream_trigger_process(m_stream.get());
}

void CameraStream::sendPlacard(Notice notice) {
  if (!m_isConsumed || !m_chosen || m_frame) return;
  auto frame = std::make_shared<Frame>();
  frame->format.encoding = m_chosen->encoding;
  frame->data = placard(notice, m_chosen->encoding, m_chosen->size);
  m_frame = std::move(frame);
  m_isPlacard = true;
  pw_stream_trigger_process(m_stream.get());
}

// What has not become a buffer.
void CameraStream::dropFrame(const std::string& reason) {
  const FramePtr frame = std::exchange(m_frame, nullptr);
  if (frame && !std::exchange(m_isPlacard, false)) m_owner.dropped(reason);
}

bool CameraStream::fits(const Frame& frame) const {
  const FrameSize size = {frame.format.width, frame.format.height};
  return m_chosen && m_chosen->size == size && m_chosen->encoding == frame.format.encoding;
}

// Called when PipeWire is ready for the frame.
void CameraStream::process() {
  if (!m_frame) return;
  pw_buffer* buffer = freeBuffer();
  if (buffer == nullptr || !m_chosen) return dropFrame();
  if (!m_continuity.isDecodable(m_frame->format)) {
    m_owner.keyFrameNeeded();
    return dropFrame();
  }
  const spa_data& data = buffer->buffer->datas[0];
  if (data.data == nullptr) return dropFrame("PipeWire's buffers cannot be written to");
  if (m_frame->data.size() > data.maxsize) {
    return dropFrame("a frame is larger than PipeWire's buffers for its size");
  }
  const FramePtr frame = std::exchange(m_frame, nullptr);
  base::copyBytes(frame->data, static_cast<unsigned char*>(data.data));
  *data.chunk = {};
  data.chunk->size = static_cast<std::uint32_t>(frame->data.size());
  data.chunk->stride = static_cast<std::int32_t>(strideOf(*m_chosen));
  stamp(*buffer->buffer);
  m_buffer = nullptr;
  pw_stream_queue_buffer(m_stream.get(), buffer);
  if (std::exchange(m_isPlacard, false)) return;
  m_continuity.passed(frame->format);
  m_owner.sent();
}

// One that could not be filled is kept for the next frame.
pw_buffer* CameraStream::freeBuffer() {
  if (m_buffer == nullptr) m_buffer = pw_stream_dequeue_buffer(m_stream.get());
  return m_buffer;
}

void CameraStream::stamp(spa_buffer& buffer) {
  const auto header = static_cast<spa_meta_header*>(
      spa_buffer_find_meta_data(&buffer, SPA_META_Header, sizeof(spa_meta_header)));
  if (header == nullptr) return;
  *header = {};
  header->pts = now();
  header->seq = m_sequence++;
}

}  // namespace lumsar::agent
