#include "base/log.h"

#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <map>
#include <mutex>
#include <optional>
#include <string>

#include "base/text/utf8.h"

namespace lumsar::base {
namespace {

std::string g_program = "lumsar";
std::atomic<bool> g_verbose{false};

// How often each kind of line has been written in its current window.
class Repeats {
 public:
  void setLimit(unsigned lines, std::chrono::milliseconds window) {
    const std::lock_guard lock(m_mutex);
    m_limit = lines;
    m_window = window;
    m_kinds.clear();
  }
  // What to add to the line; nothing if it is only counted.
  std::optional<std::string> admit(const void* kind) {
    const std::lock_guard lock(m_mutex);
    if (m_limit == 0 || kind == nullptr) return "";
    const auto now = std::chrono::steady_clock::now();
    Kind& known = m_kinds[kind];
    std::string note;
    if (now - known.begin >= m_window) {
      if (known.lines > m_limit) {
        note = text(" ({} lines like this one were left out)", known.lines - m_limit);
      }
      known = {now, 0};
    }
    if (++known.lines > m_limit) return std::nullopt;
    if (known.lines == m_limit) note += " (more lines like this one are only counted for a minute)";
    return note;
  }

 private:
  struct Kind {
    std::chrono::steady_clock::time_point begin;
    std::uint64_t lines = 0;
  };
  std::mutex m_mutex;
  unsigned m_limit = 0;
  std::chrono::milliseconds m_window{};
  std::map<const void*, Kind> m_kinds;
};

Repeats g_repeats;

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

void setRepeatLimit(unsigned lines, std::chrono::milliseconds window) {
  g_repeats.setLimit(lines, window);
}

void writeLog(LogLevel level, std::string_view line, const void* kind) {
  if (level == LogLevel::Debug && !g_verbose) return;
  const auto note = g_repeats.admit(kind);
  if (!note) return;
  const std::string whole = prefix(level) + clean(line, kLongestLogLine, ' ') + *note + '\n';
  if (write(STDERR_FILENO, whole.data(), whole.size()) < 0) return;  // nowhere to report it
}

}  // namespace lumsar::base
