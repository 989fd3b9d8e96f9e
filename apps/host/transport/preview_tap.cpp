#include "transport/preview_tap.h"

#include <algorithm>
#include <utility>

#include "protocol/camera_record.h"

namespace lumsar::host {

namespace {

constexpr std::size_t kRecordOffset = kHeaderSize + sizeof(CameraDataHeader);

}  // namespace

void PreviewTap::open() {
  begin(true);
}

void PreviewTap::close() {
  begin(false);
}

void PreviewTap::begin(bool isOpen) {
  const std::lock_guard lock(m_mutex);
  m_isOpen = isOpen;
  m_hasChanged = true;
  m_came.notify_one();
  for (auto& [number, camera] : m_cameras) camera = {.id = std::move(camera.id)};
}

void PreviewTap::forget() {
  const std::lock_guard lock(m_mutex);
  m_cameras.clear();
}

void PreviewTap::pass(std::span<const unsigned char> control) {
  if (const auto record = protocol::readRecord(control, CameraDataKind::Announced)) {
    auto announced = protocol::readAnnouncement(*record, control.subspan(kRecordOffset));
    if (!announced) return;
    const std::lock_guard lock(m_mutex);
    m_cameras[record->camera] = {.id = std::move(announced->id)};
  } else if (const auto removed = protocol::readRecord(control, CameraDataKind::Removed)) {
    const std::lock_guard lock(m_mutex);
    m_cameras.erase(removed->camera);
  }
}

void PreviewTap::copy(std::span<const unsigned char> frame, Clock::time_point now) {
  const auto record = protocol::readRecord(frame, CameraDataKind::Frame);
  if (!record) return;
  auto body = frame.subspan(kRecordOffset);
  const auto fields = lumsar::take<CameraFrame>(body);
  const std::lock_guard lock(m_mutex);
  const auto camera = m_cameras.find(record->camera);
  if (!fields || !m_isOpen || camera == m_cameras.end()) return;
  if (!camera->second.wants(*fields, now)) return;
  camera->second.keep(*fields, body, now);
  m_came.notify_one();
}

// The newest of those that can be decoded by themselves, and every unit of H.264.
bool PreviewTap::Camera::wants(const CameraFrame& fields, Clock::time_point now) {
  if (fields.encoding == kEncodingH264) {
    const bool isGap = fields.sequence != last + 1;
    last = fields.sequence;
    const bool isKey = (fields.flags & kFrameIsKey) != 0;
    needsKey = now < restsUntil || ((needsKey || isGap) && !isKey);
    return !needsKey;
  }
  if (now < next) return false;
  next = now + kPreviewInterval;
  needsKey = true;
  drop();
  return true;
}

void PreviewTap::Camera::keep(const CameraFrame& fields, std::span<const unsigned char> data,
                              Clock::time_point now) {
  if (bytes + data.size() > kMaxPreviewBytes || waiting.size() == kMaxPreviewUnits) {
    drop();
    if (fields.encoding == kEncodingH264) restsUntil = now + backOff.next();
    needsKey = true;
    data = {};
  }
  waiting.push_back({id, fields, {data.begin(), data.end()}});
  bytes += data.size();
}

void PreviewTap::Camera::drop() {
  waiting.clear();
  bytes = 0;
}

PreviewTap::Event PreviewTap::wait() {
  std::unique_lock lock(m_mutex);
  m_came.wait(lock,
              [this] { return m_hasEnded || m_hasChanged || nextWaiting() != m_cameras.end(); });
  if (m_hasEnded) return Event::Ended;
  return std::exchange(m_hasChanged, false) ? Event::Changed : Event::Frame;
}

std::optional<PreviewTap::Frame> PreviewTap::take() {
  const std::lock_guard lock(m_mutex);
  const auto next = nextWaiting();
  if (next == m_cameras.end()) return std::nullopt;
  auto& [number, camera] = *next;
  m_latest = number;
  Frame frame = std::move(camera.waiting.front());
  camera.waiting.pop_front();
  camera.bytes -= frame.data.size();
  return frame;
}

void PreviewTap::end() {
  const std::lock_guard lock(m_mutex);
  m_hasEnded = true;
  m_came.notify_all();
}

PreviewTap::Cameras::iterator PreviewTap::nextWaiting() {
  const auto waits = [](const auto& entry) { return !entry.second.waiting.empty(); };
  const auto after = m_cameras.upper_bound(m_latest);
  const auto found = std::find_if(after, m_cameras.end(), waits);
  if (found != m_cameras.end()) return found;
  const auto first = std::find_if(m_cameras.begin(), after, waits);
  return first != after ? first : m_cameras.end();
}

}  // namespace lumsar::host
