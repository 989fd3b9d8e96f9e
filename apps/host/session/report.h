// Report: everything that the host says, one line at a time, and status codes in words.
// Thread-safe.
#pragma once

#include <functional>
#include <mutex>
#include <string>

#include "base/repeat_limit.h"

namespace lumsar::host {

class Report {
 public:
  // With `toStderr`, stdout stays free for a program that reads the summary.
  explicit Report(bool toStderr) : m_toStderr(toStderr) {}

  // Where lines go instead, such as above an input line; called on the saying thread.
  void setSink(std::function<void(const std::string&)> sink);
  // `answer` may have several lines.
  void say(const std::string& line, const std::string& answer = {});
  // What peers bring about, any number of times: `what` is the kind of line of which only some are
  // said in a minute.
  void note(const std::string& what, const std::string& details = {});

 private:
  base::RepeatLimit m_repeats{base::kMaxRepeatedLines};
  std::mutex m_mutex;
  std::function<void(const std::string&)> m_sink;
  bool m_toStderr;
};

// The plug-in has sent the command, and the camera service has not carried it out.
inline constexpr int kStatusRefused = -2;

// A status of the plug-in, of the IPC library or the one above in words, such as "the camera
// service is not connected (30)".
std::string statusText(int status);

// While it lives, the plug-in's log goes to the report: every line, or only what is critical. The
// plug-in's event threads may log after that; such a line goes nowhere. One at a time.
class PluginLog {
 public:
  PluginLog(Report& report, bool everything);
  ~PluginLog();
  PluginLog(const PluginLog&) = delete;
  PluginLog& operator=(const PluginLog&) = delete;

  // While it lives, what is critical on this thread is shown with everything only.
  class Muted {
   public:
    Muted();
    ~Muted();
    Muted(const Muted&) = delete;
    Muted& operator=(const Muted&) = delete;
  };
};

// A warning of another library, shown where the plug-in's lines are.
void logOfLibrary(const std::string& library, const std::string& line);

// While the plug-in's log is shown, `closed` is called when it tells of the end of the connection
// to the camera service, which is all that the plug-in tells an RDP host of that. On any thread.
void onServiceClosed(std::function<void()> closed);

}  // namespace lumsar::host
