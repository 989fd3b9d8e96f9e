// Durations as people write them.
#pragma once

#include <chrono>
#include <string_view>

namespace lumsar::base {

// "500ms", "1.5s", "10s", "5m", "8h"; a bare number is in seconds. At most 10000 hours.
// Throws UsageError.
std::chrono::milliseconds parseDuration(std::string_view text);

}  // namespace lumsar::base
