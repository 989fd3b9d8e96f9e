#include "base/log.h"

#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <string>

#include "base/text/utf8.h"

namespace lumsar::base {
namespace {

std::string g_program = "lumsar";
std::atomic<bool> g_verbose{false};

RepeatLimit g_repeats;

// The variable is inherited by programs whose standard error goes elsewhere: it counts only when it
// names the very stream.
bool writesToJournal() {
  const char* stream = std::getenv("JOURNAL_STREAM");
  struct stat status = {};
  return stream != nullptr && fstat(STDERR_FILENO, &status) == 0 &&
         text("{}:{}", status.st_dev, status.st_ino) == stream;
}

// The journal reads a priority at the front of a line; a person does not want to.
std::string prefix(LogLevel level) {
  if (writesToJournal()) return text("<{}>", static_cast<int>(level));
  const char* name = level == LogLevel::Error     ? "error: "
                     : level == LogLevel::Warning ? "warning: "
                     : level == LogLevel::Debug   ? "debug: "
                                                  : "";
  return text("{}: {}", g_program, name);
}

}  // namespace

void setProgramName(std::string_view name) {
  g_program = name;
}
void setVerbose(bool verbose) {
  g_verbose = verbose;
}
bool isVerbose() {
  return g_verbose;
}

void setRepeatLimit(unsigned lines) {
  g_repeats.set(lines);
}

void writeLog(LogLevel level, std::string_view line, std::string_view kind) {
  if (level == LogLevel::Debug && !g_verbose) return;
  const auto note = g_repeats.admit(kind);
  if (!note) return;
  const std::string whole = prefix(level) + clean(line, kLongestLogLine, ' ') + *note + '\n';
  if (write(STDERR_FILENO, whole.data(), whole.size()) < 0) return;  // nowhere to report it
}

}  // namespace lumsar::base
