#include "session/camera_table.h"

#include <utility>

#include "base/log.h"
#include "base/text/utf8.h"

namespace lumsar::agent {
namespace {
// No user has more; a peer that announces more is faulty.
constexpr std::size_t kMaxCameras = 64;
}  // namespace

void CameraTable::sendEncodings() {
  m_send(protocol::encodingsMessage(MSG_DATA, m_gallery.encodings()).bytes());
}

void CameraTable::takeRecord(Bytes record) {
  const auto header = take<CameraDataHeader>(record);
  if (!header) return skip("shorter than its header");
  switch (static_cast<CameraDataKind>(header->kind)) {
    case CameraDataKind::Announced:
      return announce(*header, record);
    case CameraDataKind::Removed:
      return remove(*header, record);
    case CameraDataKind::Frame:
      return takeFrame(*header, record);
    default:
      return skip(base::text("of the unknown kind {}", header->kind));
  }
}

void CameraTable::announce(const CameraDataHeader& header, Bytes body) {
  auto info = protocol::readAnnouncement(header, body);
  if (!info) return skip("an incomplete announcement");
  if (const auto known = m_cameras.find(header.camera); known != m_cameras.end()) {
    if (known->second->info() == *info) return known->second->repeatStart();
    m_gallery.retire(std::move(known->second), false);
    m_cameras.erase(known);
  }
  if (m_cameras.size() >= kMaxCameras) {
    return skip(
        base::text("an announcement above the limit of {} cameras per connection", kMaxCameras));
  }
  ++m_announcements;
  base::logInfo("camera \"{}\" announced: number {}, id \"{}\", {}x{} {}", info->name, info->camera,
                info->id, info->format.width, info->format.height,
                protocol::encodingName(info->format.encoding));
  const std::uint32_t number = info->camera;
  auto camera = m_gallery.open(std::move(*info), [this, number](CameraDataKind kind, Bytes asked) {
    m_send(protocol::recordMessage(MSG_DATA, kind, number, asked).bytes());
  });
  const auto added = m_cameras.emplace(number, std::move(camera)).first;
  added->second->update(Clock::now());
}

void CameraTable::remove(const CameraDataHeader& header, Bytes body) {
  const auto found = m_cameras.find(header.camera);
  if (found == m_cameras.end())
    return skip(base::text("about the unknown camera {}", header.camera));
  const std::string why = base::clean({reinterpret_cast<const char*>(body.data()), body.size()});
  base::logInfo("camera \"{}\" removed{}{}", found->second->info().name, why.empty() ? "" : ": ",
                why);
  m_gallery.retire(std::move(found->second), false);
  m_cameras.erase(found);
}

void CameraTable::takeFrame(const CameraDataHeader& header, Bytes body) {
  const auto found = m_cameras.find(header.camera);
  if (found == m_cameras.end())
    return skip(base::text("about the unknown camera {}", header.camera));
  found->second->takeFrame(header, body);
}

void CameraTable::skip(const std::string& what) {
  if (m_skipped++ == 0) {
    base::logWarning("skipped a record: {}; further ones are only counted", what);
  } else {
    base::logDebug("skipped a record: {}", what);
  }
}

void CameraTable::update(Clock::time_point now) {
  for (const auto& [number, camera] : m_cameras) camera->update(now);
}

Clock::time_point CameraTable::due() const {
  auto due = Clock::time_point::max();
  for (const auto& [number, camera] : m_cameras) due = std::min(due, camera->due());
  return due;
}

void CameraTable::dropAll(const std::string& why, bool tellService) {
  for (auto& [number, camera] : m_cameras) {
    base::logInfo("camera \"{}\" removed: {}", camera->info().name, why);
    m_gallery.retire(std::move(camera), tellService);
  }
  m_cameras.clear();
}

void CameraTable::appendStatus(std::vector<CameraStatus>& to) const {
  for (const auto& [number, camera] : m_cameras) to.push_back(camera->status());
}

}  // namespace lumsar::agent
