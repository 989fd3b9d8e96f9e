// The log: one clear line per event on stderr.
// Called by everything here. Thread-safe: a line is written by one call.
// Texts that came from a peer go through clean() before they get here.
#ifndef LUMSAR_AGENT_APP_LOG_H
#define LUMSAR_AGENT_APP_LOG_H

#include <cstdint>
#include <sstream>
#include <string>
#include <string_view>

namespace lumsar::agent {

void writeLogLine(std::string_view level, std::string_view line);

// Details are left out unless somebody asks for them.
void setVerbose(bool verbose);
bool isVerbose();

template <class... Parts>
std::string text(const Parts&... parts) {
  std::ostringstream stream;
  (stream << ... << parts);
  return stream.str();
}

template <class... Parts>
void logDetail(const Parts&... parts) {
  if (isVerbose()) writeLogLine("", text(parts...));
}
template <class... Parts>
void logInfo(const Parts&... parts) {
  writeLogLine("", text(parts...));
}
template <class... Parts>
void logWarning(const Parts&... parts) {
  writeLogLine("warning: ", text(parts...));
}
template <class... Parts>
void logError(const Parts&... parts) {
  writeLogLine("error: ", text(parts...));
}

// What the current errno means.
std::string systemError();

// A peer's text made harmless: valid UTF-8, no control characters, at most `longest` bytes.
std::string clean(std::string_view peerText, std::size_t longest = 200);

}  // namespace lumsar::agent

#endif
