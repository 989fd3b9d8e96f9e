// NodeNames: the names of cameras' nodes, by which programs remember them: the same one each time a
// camera comes, and one of its own for each camera. Not thread-safe.
#pragma once

#include <set>
#include <string>
#include <string_view>

#include "base/text/format.h"
#include "base/text/utf8.h"

namespace lumsar::agent {

class NodeNames {
 public:
  std::string take(std::string_view cameraId) {
    const std::string id = base::fileName(cameraId);
    const std::string first = "lumsar." + (id.empty() ? "camera" : id);
    std::string name = first;
    for (int i = 2; !m_taken.insert(name).second; ++i) name = base::text("{}.{}", first, i);
    return name;
  }
  void giveBack(const std::string& name) { m_taken.erase(name); }

 private:
  std::set<std::string> m_taken;
};

}  // namespace lumsar::agent
