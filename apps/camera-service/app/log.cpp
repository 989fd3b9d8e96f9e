// The service's log: see log.h. Called on any thread.
#include "app/log.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>

namespace lumsar::service {
namespace {

std::atomic<bool> g_verbose = false;

// The journal reads a level at the front of a line; a person does not want to.
const char* prefix(LogLevel level) {
  static const bool journal = std::getenv("JOURNAL_STREAM") != nullptr;
  switch (level) {
    case LogLevel::Warning:
      return journal ? "<4>" : "lumsar-camera-service: warning: ";
    case LogLevel::Info:
      return journal ? "<6>" : "lumsar-camera-service: ";
    case LogLevel::Debug:
      return journal ? "<7>" : "lumsar-camera-service: debug: ";
  }
  return "";
}

}  // namespace

void setVerbose(bool verbose) {
  g_verbose = verbose;
}

void writeLog(LogLevel level, const std::string& text) {
  if (level == LogLevel::Debug && !g_verbose) return;
  std::string line = prefix(level) + text;
  // Texts from outside must not forge further lines.
  std::ranges::replace_if(
      line, [](char c) { return static_cast<unsigned char>(c) < ' '; }, ' ');
  line += '\n';
  [[maybe_unused]] const ssize_t written = ::write(STDERR_FILENO, line.data(), line.size());
}

}  // namespace lumsar::service
