#include "cameras/camera_model.h"

#include <algorithm>

#include "base/text/utf8.h"

namespace lumsar::host {

namespace {

// A SPICE server tells of a port that nobody in the VM has opened; an RDP server's channel may look
// open when it is not.
Problem problemOf(const Session::State& session, bool serviceAnswers, Protocol protocol) {
  const bool isRdp = protocol == Protocol::Rdp;
  if (!session.initialised) return Problem::NoService;
  if (!serviceAnswers) return Problem::ServiceSilent;
  if (!session.channelOpen) return isRdp ? Problem::NoChannel : Problem::PortClosed;
  if (session.answered) return Problem::None;
  if (session.strayed) return Problem::NotOurs;
  return isRdp ? Problem::ChannelSilent : Problem::NoAnswer;
}

CameraState stateOf(const ListedCamera& camera) {
  if (!camera.present) return CameraState::Unplugged;
  if (!camera.sharedHere) return CameraState::Off;
  return camera.inUseHere ? CameraState::InUse : CameraState::On;
}

// A refusal is shown with its camera, also where the rules hide that from this VM.
void addRefusal(std::vector<CameraRow>& rows, const ListedRefusal& refusal) {
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

CameraModel describeCameras(const Session::State& session, const std::optional<CameraList>& list,
                            bool serviceAnswers, Protocol protocol) {
  CameraModel model{.problem = problemOf(session, serviceAnswers, protocol)};
  if (!session.initialised || !list) return model;
  model.isListed = true;
  for (const ListedCamera& camera : list->cameras) {
    model.cameras.push_back(
        {camera.id, base::clean(camera.name), stateOf(camera), camera.sharedHere});
  }
  for (const ListedCamera& camera : list->awaited) {
    model.cameras.push_back({camera.id, base::clean(camera.name), CameraState::Unplugged, true});
  }
  for (const ListedRefusal& refusal : list->refusals) addRefusal(model.cameras, refusal);
  return model;
}

}  // namespace lumsar::host
