// The log of all programs: lines on standard error, for a terminal or for the journal.
// Thread-safe: each line is one write, and what comes from a peer cannot forge another.
#pragma once

#include <string_view>

#include "base/text/format.h"

namespace lumsar::base {

// The journal's priorities.
enum class LogLevel { Error = 3, Warning = 4, Info = 6, Debug = 7 };

// Once, before any thread logs.
void setProgramName(std::string_view name);
// Debug lines are written only when verbose.
void setVerbose(bool verbose);
bool isVerbose();

void writeLog(LogLevel level, std::string_view line);

template <class... Args>
void logError(fmt::format_string<Args...> format, Args&&... args) {
  writeLog(LogLevel::Error, fmt::vformat(format, fmt::make_format_args(args...)));
}
template <class... Args>
void logWarning(fmt::format_string<Args...> format, Args&&... args) {
  writeLog(LogLevel::Warning, fmt::vformat(format, fmt::make_format_args(args...)));
}
template <class... Args>
void logInfo(fmt::format_string<Args...> format, Args&&... args) {
  writeLog(LogLevel::Info, fmt::vformat(format, fmt::make_format_args(args...)));
}
template <class... Args>
void logDebug(fmt::format_string<Args...> format, Args&&... args) {
  if (isVerbose()) writeLog(LogLevel::Debug, fmt::vformat(format, fmt::make_format_args(args...)));
}

}  // namespace lumsar::base
