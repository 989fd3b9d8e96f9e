// The service's log: lines on standard error, for a terminal or the journal. Called by every part
// of the service, on any thread. Thread-safe: a line is written at once.
#ifndef LUMSAR_CAMERA_SERVICE_APP_LOG_H
#define LUMSAR_CAMERA_SERVICE_APP_LOG_H

#include <sstream>
#include <string>

namespace lumsar::service {

enum class LogLevel { Warning, Info, Debug };

// Debug lines are written only when verbose.
void setVerbose(bool verbose);
void writeLog(LogLevel level, const std::string& text);

template <class... Parts>
std::string joined(const Parts&... parts) {
  std::ostringstream text;
  (text << ... << parts);
  return text.str();
}

template <class... Parts>
void logWarning(const Parts&... parts) {
  writeLog(LogLevel::Warning, joined(parts...));
}
template <class... Parts>
void logInfo(const Parts&... parts) {
  writeLog(LogLevel::Info, joined(parts...));
}
template <class... Parts>
void logDebug(const Parts&... parts) {
  writeLog(LogLevel::Debug, joined(parts...));
}

}  // namespace lumsar::service

#endif
