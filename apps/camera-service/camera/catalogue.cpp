#include "camera/catalogue.h"

namespace lumsar::service {

const Camera* Catalogue::plug(CameraInfo info) {
  const auto [place, added] = m_cameras.try_emplace(info.id);
  Camera& camera = place->second;
  if (camera.present) return nullptr;
  if (added) {
    camera.number = static_cast<std::uint32_t>(m_inOrder.size());
    m_inOrder.push_back(&camera);
  }
  camera.info = std::move(info);
  camera.present = true;
  return &camera;
}

const Camera* Catalogue::unplug(const std::string& id) {
  const auto found = m_cameras.find(id);
  if (found == m_cameras.end() || !found->second.present) return nullptr;
  found->second.present = false;
  return &found->second;
}

const Camera* Catalogue::find(const std::string& reference) const {
  if (const auto found = m_cameras.find(reference); found != m_cameras.end()) {
    return &found->second;
  }
  const Camera* named = nullptr;
  bool several = false;
  for (const Camera* camera : m_inOrder) {
    if (std::to_string(camera->number) == reference) return camera;
    if (camera->info.name != reference) continue;
    if (named != nullptr && named->present && !camera->present) continue;
    several = named != nullptr && named->present == camera->present;
    named = camera;
  }
  return several ? nullptr : named;
}

}  // namespace lumsar::service
