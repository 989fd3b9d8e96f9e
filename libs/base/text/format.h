// Builds texts; the compiler checks the format string against its arguments.
#pragma once

#include <fmt/core.h>

#include <cerrno>
#include <string>

namespace lumsar::base {

template <class... Args>
std::string text(fmt::format_string<Args...> format, Args&&... args) {
  return fmt::vformat(format, fmt::make_format_args(args...));
}

// What an errno value means.
std::string systemError(int error = errno);

}  // namespace lumsar::base
