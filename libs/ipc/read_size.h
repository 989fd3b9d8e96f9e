// How much both ends of the transport read at once.
#pragma once

#include <algorithm>
#include <cstddef>

namespace lumsar::ipc {

// Whether so much of a message is missing that it is read without waiting for the socket.
inline bool isWorthACall(std::size_t missing) {
  return missing >= (16U << 10U);
}

// A length is believed only as far as bytes have come: memory grows with what was received.
inline std::size_t readSize(std::size_t missing) {
  constexpr std::size_t kSmallest = 64U << 10U;
  constexpr std::size_t kLargest = 1U << 20U;
  // Nothing beyond a large message, so that the next one begins at the front of the buffer.
  return isWorthACall(missing) ? std::min(missing, kLargest) : kSmallest;
}

}  // namespace lumsar::ipc
