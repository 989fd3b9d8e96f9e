// Whether a message is as long as its header says. The plug-in trusts complete messages and does
// not ask; built with LUMSAR_CHECK_LENGTHS it does, for hosts and IPC libraries that may deliver
// less.
#pragma once

#include <QtGlobal>
#include <algorithm>
#include <cstdint>

#include "lumsar/message.h"

#ifdef LUMSAR_CHECK_LENGTHS
inline constexpr bool kCheckLengths = true;
#else
inline constexpr bool kCheckLengths = false;
#endif

// `delivered` bytes at `message`. A message of the type HELLO has a payload whatever its header
// says.
inline bool isComplete(const char* function, const void* message, std::int64_t delivered) {
  if constexpr (!kCheckLengths) return true;
  std::int64_t claimed = lumsar::kHeaderSize;
  if (delivered >= claimed) {
    const lumsar::RedirMsgHeader header = lumsar::readHeader(message);
    const bool isHello = header.type == lumsar::MSG_HELLO;
    claimed += std::max<std::int64_t>(header.length, isHello ? sizeof(lumsar::HelloPayload) : 0);
  }
  if (delivered >= claimed) return true;
  qCritical("[%s] Message of %lld bytes delivered as %lld! Dropped!", function,
            static_cast<long long>(claimed), static_cast<long long>(delivered));
  return false;
}
