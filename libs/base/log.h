// The log of all programs: lines on standard error, for a terminal or for the journal.
// Thread-safe: each line is one write, and what comes from a peer cannot forge another.
#pragma once

#include <cstddef>
#include <string_view>

#include "base/repeat_limit.h"
#include "base/text/format.h"

namespace lumsar::base {

// The journal's priorities.
enum class LogLevel { Error = 3, Warning = 4, Info = 6, Debug = 7 };

// Once, before any thread logs.
void setProgramName(std::string_view name);
// Debug lines are written only when verbose.
void setVerbose(bool verbose);
bool isVerbose();

// What is longer is cut: a text from outside may have any length.
inline constexpr std::size_t kLongestLogLine = 8192;

// At most so many lines of one kind, which is one format, are written in each minute; the others
// are counted. 0 for no limit. For a program whose peers can make it log.
void setRepeatLimit(unsigned lines);

void writeLog(LogLevel level, std::string_view line, std::string_view kind = {});

inline std::string_view kindOf(fmt::string_view format) {
  return {format.data(), format.size()};
}

template <class... Args>
void logError(fmt::format_string<Args...> format, Args&&... args) {
  writeLog(LogLevel::Error, fmt::vformat(format, fmt::make_format_args(args...)), kindOf(format));
}
template <class... Args>
void logWarning(fmt::format_string<Args...> format, Args&&... args) {
  writeLog(LogLevel::Warning, fmt::vformat(format, fmt::make_format_args(args...)), kindOf(format));
}
template <class... Args>
void logInfo(fmt::format_string<Args...> format, Args&&... args) {
  writeLog(LogLevel::Info, fmt::vformat(format, fmt::make_format_args(args...)), kindOf(format));
}
template <class... Args>
void logDebug(fmt::format_string<Args...> format, Args&&... args) {
  if (isVerbose()) writeLog(LogLevel::Debug, fmt::vformat(format, fmt::make_format_args(args...)));
}

}  // namespace lumsar::base
