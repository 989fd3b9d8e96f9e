// What the file that LUMSAR_FAULTS_FILE names tells the preloaded library.
#pragma once

#include <cstdint>

namespace lumsar::test {

struct Orders {
  std::int64_t clockOffset = 0;  // s
  bool refuseThreads = false;
};

}  // namespace lumsar::test
