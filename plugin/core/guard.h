// The exception boundary around the body of each exported function, IPC callback and thread.
#pragma once

#include <cxxabi.h>

#include <QtGlobal>
#include <exception>
#include <utility>

#include "lumsar/plugin.h"

// Logs what was stopped. Where even that fails, for want of memory or in the host's message
// handler, the line is lost, not the process. (Nothing can be done for a line that was built with
// <<: Qt delivers it from a destructor.)
inline void logStopped(const char* function, const char* what) noexcept {
  try {
    qCritical("%s: stopped by an exception: %s", function, what);
  } catch (...) {
    return;
  }
}

// Runs `body` and returns its status; STATUS_EXCEPTION when it threw.
template <class Body>
int guarded(const char* function, Body&& body) {
  try {
    return std::forward<Body>(body)();
  } catch (const std::exception& error) {
    logStopped(function, error.what());
  } catch (const abi::__forced_unwind&) {
    throw;  // no exception: the host ends this thread from inside its callable
  } catch (...) {
    logStopped(function, "of unknown type");
  }
  return lumsar::STATUS_EXCEPTION;
}
