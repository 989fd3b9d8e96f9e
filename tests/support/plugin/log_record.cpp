// Debug lines are switched on, whatever the machine's logging rules say.
#include "support/plugin/log_record.h"

#include <QDebug>
#include <QLoggingCategory>
#include <algorithm>
#include <chrono>
#include <cstring>
#include <regex>
#include <utility>

#include "support/eventually.h"

namespace lumsar::test {
namespace {

const char* levelName(QtMsgType level) {
  switch (level) {
    case QtDebugMsg:
      return "debug";
    case QtInfoMsg:
      return "info";
    case QtWarningMsg:
      return "warning";
    case QtCriticalMsg:
      return "critical";
    default:
      return "fatal";
  }
}

}  // namespace

std::string debug(const std::string& text) {
  return "debug: " + text;
}
std::string info(const std::string& text) {
  return "info: " + text;
}
std::string warning(const std::string& text) {
  return "warning: " + text;
}
std::string critical(const std::string& text) {
  return "critical: " + text;
}

Lines concat(std::initializer_list<Lines> parts) {
  Lines all;
  for (const Lines& part : parts) all.insert(all.end(), part.begin(), part.end());
  return all;
}

std::string inQuotes(const QString& text) {
  QString printed;
  QDebug(&printed).nospace() << text;
  return printed.toStdString();
}

std::string inQuotes(const std::string& utf8) {
  return inQuotes(QString::fromStdString(utf8));
}

Lines withoutSourceLines(Lines lines) {
  static const std::regex site(R"(^(\w+: \[Init\]\[)\d+\])");
  for (std::string& line : lines) line = std::regex_replace(line, site, "$1#]");
  return lines;
}

LogRecord& LogRecord::instance() {
  // Never destroyed: detached event threads may outlive main.
  static LogRecord& record = *new LogRecord;
  return record;
}

void LogRecord::install() {
  instance();
  qputenv("QT_LOGGING_RULES", "default=true");
  qInstallMessageHandler(&LogRecord::handle);
}

void LogRecord::handle(QtMsgType level, const QMessageLogContext& context, const QString& text) {
  std::string line = levelName(level);
  if (context.category == nullptr || std::strcmp(context.category, "default") != 0) {
    line += std::string("[") + (context.category != nullptr ? context.category : "null") + "]";
  }
  instance().add(line + ": " + text.toStdString());
}

void LogRecord::add(std::string line) {
  const std::lock_guard lock(m_mutex);
  m_entries.push_back({std::move(line), std::this_thread::get_id()});
  m_changed.notify_all();
}

template <class Wanted>
Lines LogRecord::takeIf(Wanted wanted) {
  const std::lock_guard lock(m_mutex);
  Lines taken;
  std::vector<Entry> kept;
  for (Entry& entry : m_entries) {
    if (wanted(entry)) {
      taken.push_back(std::move(entry.line));
    } else {
      kept.push_back(std::move(entry));
    }
  }
  m_entries = std::move(kept);
  return taken;
}

Lines LogRecord::take() {
  return takeIf([](const Entry&) { return true; });
}

Lines LogRecord::takeHere() {
  return takeIf([](const Entry& entry) { return entry.thread == std::this_thread::get_id(); });
}

Lines LogRecord::takeElsewhere() {
  return takeIf([](const Entry& entry) { return entry.thread != std::this_thread::get_id(); });
}

bool LogRecord::waitFor(const std::string& line) {
  std::unique_lock lock(m_mutex);
  return m_changed.wait_for(lock, kTimeout, [&] {
    return std::ranges::any_of(m_entries, [&](const Entry& entry) { return entry.line == line; });
  });
}

bool LogRecord::waitForPrefix(const std::string& prefix) {
  std::unique_lock lock(m_mutex);
  return m_changed.wait_for(lock, kTimeout, [&] {
    return std::ranges::any_of(m_entries,
                               [&](const Entry& entry) { return entry.line.starts_with(prefix); });
  });
}

}  // namespace lumsar::test
