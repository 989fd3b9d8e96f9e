// How many descriptors this process may still open, so that what fails without them can be left
// alone and its cause be named.
#pragma once

#include <fcntl.h>
#include <sys/resource.h>

#include <cstddef>
#include <string>

#include "base/fd.h"
#include "base/text/format.h"

namespace lumsar::base {

inline rlim_t descriptorLimit() {
  rlimit limit{};
  return getrlimit(RLIMIT_NOFILE, &limit) == 0 ? limit.rlim_cur : RLIM_INFINITY;
}

// The system gives the lowest free number: all below it are in use.
inline bool hasSpareDescriptors(std::size_t count) {
  const UniqueFd lowest(open("/", O_PATH | O_CLOEXEC));
  return lowest && static_cast<rlim_t>(lowest.get()) + count <= descriptorLimit();
}

inline std::string tooManyOpenFiles() {
  return text("too many files are open; at most {} may be (ulimit -n, LimitNOFILE=)",
              descriptorLimit());
}

}  // namespace lumsar::base
