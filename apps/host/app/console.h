// Console: reads command lines from standard input on its own thread; with line editing and
// history where it is a terminal.
#pragma once

#include <functional>
#include <mutex>
#include <string>
#include <thread>

#include "base/system/event_fd.h"

namespace lumsar::host {

class Console {
 public:
  // `onLine` is called with each line, `onEnd` at the end of input; while `isBusy`, nothing is read
  // from what is not a terminal. All on the console's thread.
  Console(std::function<void(const std::string&)> onLine, std::function<void()> onEnd,
          std::function<bool()> isBusy);
  ~Console();
  Console(const Console&) = delete;
  Console& operator=(const Console&) = delete;

  bool isTerminal() const { return m_terminal; }
  // On a terminal: prints a line above the one that is being edited. Thread-safe.
  void print(const std::string& line);

 private:
  void run();
  bool readSome();
  void takeUnfinished();
  void takeLine(const char* line);
  void printWaiting();

  std::function<void(const std::string&)> m_onLine;
  std::function<void()> m_onEnd;
  std::function<bool()> m_isBusy;
  bool m_terminal;
  bool m_ended = false;
  std::string m_unfinished;
  bool m_tooLong = false;  // more than that of the line has come
  std::mutex m_mutex;
  std::string m_waiting;  // to be printed by the console's thread
  base::EventFd m_wake;
  bool m_stopping = false;
  std::thread m_thread;
};

}  // namespace lumsar::host
