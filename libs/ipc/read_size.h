// How much both ends of the transport read at once.
#pragma once

#include <algorithm>
#include <cstddef>

namespace lumsar::ipc {

// A length is believed only as far as bytes have come: memory grows with what was received.
inline std::size_t readSize(std::size_t missing) {
  constexpr std::size_t kSmallest = 64U << 10U;
  constexpr std::size_t kLargest = 1U << 20U;
  return std::clamp(missing, kSmallest, kLargest);
}

}  // namespace lumsar::ipc
