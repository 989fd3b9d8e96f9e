#include "session/report.h"

#include <QString>
#include <QtGlobal>
#include <cstdio>
#include <ctime>
#include <sstream>

#include "base/log.h"
#include "base/text/format.h"
#include "base/text/utf8.h"
#include "lumsar/ipc_transport.h"
#include "lumsar/plugin.h"

namespace lumsar::host {

namespace {

std::string timeOfDay() {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  tm local{};
  localtime_r(&now.tv_sec, &local);
  return base::text("{:02}:{:02}:{:02}.{:03} ", local.tm_hour, local.tm_min, local.tm_sec,
                    now.tv_nsec / 1000000);
}

// Much of it comes from the VM and the camera service.
std::string shown(const std::string& line) {
  return base::clean(line, base::kLongestLogLine, ' ');
}

const char* statusWords(int status) {
  switch (status) {
    case STATUS_OK:
      return "done";
    case STATUS_INIT_FAILED:
      return "the IPC library cannot be loaded or cannot create a client";
    case STATUS_INVALID_PARAMETER:
      return "invalid parameter";
    case STATUS_INVALID_MAGIC:
      return "a message does not begin with the magic number";
    case STATUS_UNKNOWN_COMMAND:
      return "unknown command";
    case STATUS_NOT_JSON:
      return "the command is not valid JSON";
    case STATUS_MISSING_ITEM:
      return "the command lacks an item";
    case STATUS_NO_OBJECT:
      return "out of memory";
    case STATUS_REPLY_TOO_LARGE:
      return "the answer does not fit into the buffer";
    case STATUS_NOT_INITIALIZED:
      return "the plug-in is not initialised";
    case STATUS_ALREADY_INITIALIZED:
      return "the plug-in is already initialised";
    case STATUS_NOT_CONNECTED:
      return "the camera service is not connected";
    case STATUS_DISCONNECTED:
      return "not connected";
    case STATUS_ALREADY_CONNECTED:
      return "already connected";
    case STATUS_LIST_CALL_FAILED:
      return "the camera service does not answer";
    case STATUS_LIST_ERROR:
      return "the camera service cannot list its cameras";
    case STATUS_EXCEPTION:
      return "the plug-in stopped an exception; see its log";
    case kStatusRefused:
      return "refused";
    default:
      break;
  }
  const char* ipcWords = ipcErrorText(status);
  return ipcWords != nullptr ? ipcWords : "unknown status";
}

constexpr const char* kServiceClosed = "Ipc connection disconnet!!";

std::mutex logMutex;  // guards the three below
Report* logReport = nullptr;
bool logEverything = false;
std::function<void()> logServiceClosed;
thread_local bool logMuted = false;

void writeLog(QtMsgType type, const QMessageLogContext& /*context*/, const QString& text) {
  const std::lock_guard lock(logMutex);
  if (logReport == nullptr) return;
  if (logServiceClosed && text.startsWith(QLatin1String(kServiceClosed))) logServiceClosed();
  if (!logEverything && (logMuted || (type != QtCriticalMsg && type != QtFatalMsg))) return;
  const char* level = type == QtDebugMsg     ? "debug"
                      : type == QtInfoMsg    ? "info"
                      : type == QtWarningMsg ? "warning"
                                             : "critical";
  const std::string line = text.trimmed().toStdString();
  const std::string what = base::text("  plug-in {}: ", level);
  if (logEverything) return logReport->say(what + line);
  // The plug-in's lines begin with the function that writes them.
  const std::size_t found = line.find(':');
  const std::size_t function = found == std::string::npos ? 0 : found;
  logReport->note(what + line.substr(0, function), line.substr(function));
}

}  // namespace

void Report::setSink(std::function<void(const std::string&)> sink) {
  const std::lock_guard lock(m_mutex);
  m_sink = std::move(sink);
}

void Report::say(const std::string& line, const std::string& answer) {
  std::string text = timeOfDay() + shown(line);
  std::istringstream lines(answer);
  for (std::string each; std::getline(lines, each);) text.append("\n").append(shown(each));
  const std::lock_guard lock(m_mutex);
  if (m_sink) return m_sink(text);
  std::FILE* stream = m_toStderr ? stderr : stdout;
  std::fprintf(stream, "%s\n", text.c_str());
  std::fflush(stream);
}

void Report::note(const std::string& what, const std::string& details) {
  if (const auto counted = m_repeats.admit(what)) say(what + details + *counted);
}

std::string statusText(int status) {
  return base::text("{} ({})", statusWords(status), status);
}

PluginLog::PluginLog(Report& report, bool everything) {
  const std::lock_guard lock(logMutex);
  logReport = &report;
  logEverything = everything;
  qInstallMessageHandler(writeLog);
}

PluginLog::Muted::Muted() {
  logMuted = true;
}

PluginLog::Muted::~Muted() {
  logMuted = false;
}

void logOfLibrary(const std::string& library, const std::string& line) {
  const std::lock_guard lock(logMutex);
  if (logReport != nullptr) logReport->note(base::text("  {}: ", library), line);
}

void onServiceClosed(std::function<void()> closed) {
  const std::lock_guard lock(logMutex);
  logServiceClosed = std::move(closed);
}

PluginLog::~PluginLog() {
  const std::lock_guard lock(logMutex);
  logReport = nullptr;
}

}  // namespace lumsar::host
