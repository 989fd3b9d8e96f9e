#include "cameras/camera_model.h"

#include <algorithm>

#include "base/text/utf8.h"

namespace lumsar::viewer {

namespace {

using host::CameraList;

Problem problemOf(const host::Session::State& session) {
  if (!session.initialised) return Problem::NoService;
  if (!session.channelOpen) return Problem::PortClosed;
  if (session.handshakes > 0) return Problem::None;
  return session.strayBytes > 0 ? Problem::NotOurs : Problem::NoAnswer;
}

CameraState stateOf(const host::ListedCamera& camera, bool isShared) {
  if (!camera.present) return CameraState::Unplugged;
  if (!isShared) return CameraState::Off;
  return camera.inUse ? CameraState::InUse : CameraState::On;
}

// A refusal is shown with its camera, also where the rules hide that from this VM.
void addRefusal(std::vector<CameraRow>& rows, const host::ListedRefusal& refusal) {
  if (refusal.camera.empty()) return;
  const auto row = std::ranges::find_if(rows, [&](const CameraRow& each) {
    return each.id == refusal.camera || each.name == refusal.camera;
  });
  if (row == rows.end()) {
    const std::string& name = refusal.name.empty() ? refusal.camera : refusal.name;
    rows.push_back(
        {refusal.camera, base::clean(name), CameraState::Refused, false, refusal.reason});
  } else if (row->state == CameraState::Off) {
    row->state = CameraState::Refused;
    row->reason = refusal.reason;
  }
}

}  // namespace

bool CameraModel::inUse() const {
  return std::ranges::count(cameras, CameraState::InUse, &CameraRow::state) > 0;
}

std::vector<std::string> CameraModel::shared() const {
  std::vector<std::string> ids;
  for (const CameraRow& row : cameras) {
    if (row.shared) ids.push_back(row.id);
  }
  return ids;
}

CameraModel describeCameras(const host::Session::State& session,
                            const std::optional<CameraList>& list, const std::string& vmId) {
  CameraModel model{.problem = problemOf(session)};
  if (!session.initialised || !list) return model;
  for (const host::ListedCamera& camera : list->cameras) {
    const bool isShared = std::ranges::count(camera.sharedWith, vmId) > 0;
    model.cameras.push_back(
        {camera.id, base::clean(camera.name), stateOf(camera, isShared), isShared});
  }
  for (const host::ListedCamera& camera : list->awaited) {
    model.cameras.push_back({camera.id, base::clean(camera.name), CameraState::Unplugged, true});
  }
  for (const host::ListedRefusal& refusal : list->refusals) addRefusal(model.cameras, refusal);
  return model;
}

}  // namespace lumsar::viewer
