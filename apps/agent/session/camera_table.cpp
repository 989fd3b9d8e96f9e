// Records in, cameras that come and go. Owned by a Peer.
// Bound to the channel's thread.
#include "session/camera_table.h"

#include <utility>

#include "app/log.h"

namespace lumsar::agent {
namespace {
// No user has more; a peer that announces more is at fault.
constexpr std::size_t kMostCameras = 64;
}  // namespace

void CameraTable::takeRecord(Bytes record) {
  const auto header = take<CameraDataHeader>(record);
  if (!header) return skip("shorter than its header");
  switch (static_cast<CameraDataKind>(header->kind)) {
    case CameraDataKind::Announced:
      return announce(*header, record);
    case CameraDataKind::Gone:
      return gone(*header, record);
    case CameraDataKind::Frame:
      return frame(*header, record);
    default:
      return skip(text("of the unknown kind ", header->kind));
  }
}

void CameraTable::announce(const CameraDataHeader& header, Bytes body) {
  auto info = readAnnounced(header, body);
  if (!info) return skip("an announcement cut short");
  if (const auto known = m_cameras.find(header.camera); known != m_cameras.end()) {
    m_gallery.retire(std::move(known->second), false);
    m_cameras.erase(known);
  }
  if (m_cameras.size() >= kMostCameras) {
    return skip(text("the announcement of one camera more than the ", kMostCameras,
                     " that one connection may have"));
  }
  logInfo("camera \"", info->name, "\" announced: number ", info->number, ", id \"", info->id,
          "\", ", info->format.width, "x", info->format.height, " ",
          encodingName(info->format.encoding));
  const std::uint32_t number = info->number;
  auto camera = m_gallery.open(std::move(*info), [this, number](CameraDataKind kind, Bytes asked) {
    m_send(dataMessage(kind, number, asked));
  });
  m_cameras.emplace(number, std::move(camera)).first->second->update(Clock::now());
}

void CameraTable::gone(const CameraDataHeader& header, Bytes body) {
  const auto found = m_cameras.find(header.camera);
  if (found == m_cameras.end()) return skip(text("about the unknown camera ", header.camera));
  const std::string why = clean({reinterpret_cast<const char*>(body.data()), body.size()});
  logInfo("camera \"", found->second->info().name, "\" gone", why.empty() ? "" : ": ", why);
  m_gallery.retire(std::move(found->second), false);
  m_cameras.erase(found);
}

void CameraTable::frame(const CameraDataHeader& header, Bytes body) {
  const auto found = m_cameras.find(header.camera);
  if (found == m_cameras.end()) return skip(text("about the unknown camera ", header.camera));
  found->second->takeFrame(header, body);
}

void CameraTable::skip(const std::string& what) {
  if (m_skipped++ == 0) {
    logWarning("skipped a record: ", what, "; more of them are only counted");
  } else {
    logDetail("skipped a record: ", what);
  }
}

void CameraTable::update(Clock::time_point now) {
  for (const auto& [number, camera] : m_cameras) camera->update(now);
}

void CameraTable::dropAll(const std::string& why, bool tellService) {
  for (auto& [number, camera] : m_cameras) {
    logInfo("camera \"", camera->info().name, "\" gone: ", why);
    m_gallery.retire(std::move(camera), tellService);
  }
  m_cameras.clear();
}

void CameraTable::appendStatus(std::vector<CameraStatus>& to) const {
  for (const auto& [number, camera] : m_cameras) to.push_back(camera->status());
}

}  // namespace lumsar::agent
