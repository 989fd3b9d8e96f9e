// Catalogue: all cameras that the service has seen since its start, present or not, and how people
// and VMs refer to them.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "camera/camera_info.h"

namespace lumsar::service {

class Catalogue {
 public:
  // A camera keeps its number when it is plugged in again. Null when it is present already.
  const Camera* plug(CameraInfo info);
  // Null when it was not present.
  const Camera* unplug(const std::string& id);

  // By id, by number or by a name that only one camera has, of those present if any is.
  const Camera* find(const std::string& reference) const;
  // All, by number.
  const std::vector<const Camera*>& all() const { return m_inOrder; }

 private:
  std::map<std::string, Camera> m_cameras;  // by id; nothing is ever removed
  std::vector<const Camera*> m_inOrder;     // the index is the number
};

}  // namespace lumsar::service
