// LogRecord: everything that goes through the Qt message logger, in order, with its thread.
// Installed as the process's message handler by main(); lines may come on any thread.
// A line is compared as one text, "<level>: <text>", with "[category]" behind the level when the
// category is not "default".
#pragma once

#include <QString>
#include <condition_variable>
#include <initializer_list>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace lumsar::test {

using Lines = std::vector<std::string>;

std::string debug(const std::string& text);
std::string info(const std::string& text);
std::string warning(const std::string& text);
std::string critical(const std::string& text);

// Several lists, one behind the other.
Lines concat(std::initializer_list<Lines> parts);

// `text` as the Qt debug stream prints a string: in quotation marks, with Qt's escapes.
std::string inQuotes(const QString& text);
std::string inQuotes(const std::string& utf8);

// The source line in "[Init][<line>]" replaced by #, for it is no part of the text.
Lines withoutSourceLines(Lines lines);

class LogRecord {
 public:
  static LogRecord& instance();
  // Takes over the process's message handler and lets debug lines through.
  static void install();

  // The lines since the last call, of all threads, of the calling one or of all the others.
  Lines take();
  Lines takeHere();
  Lines takeElsewhere();
  void clear() { take(); }

  // Waits until `line` has been logged and is not taken yet; false after kTimeout.
  bool waitFor(const std::string& line);
  // As waitFor, for a line of which only the beginning is known.
  bool waitForPrefix(const std::string& prefix);

 private:
  struct Entry {
    std::string line;
    std::thread::id thread;
  };

  static void handle(QtMsgType level, const QMessageLogContext& context, const QString& text);
  void add(std::string line);
  template <class Wanted>
  Lines takeIf(Wanted wanted);

  std::mutex m_mutex;
  std::condition_variable m_changed;
  std::vector<Entry> m_entries;
};

}  // namespace lumsar::test
