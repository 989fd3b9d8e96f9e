// A program that a test starts. What it writes is kept and can be waited for. It is killed with the
// object, and the processes that it has started with it; it does not outlive the test program.
#pragma once

#include <sys/types.h>

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "base/system/fd.h"
#include "support/eventually.h"

namespace lumsar::test {

using base::UniqueFd;

struct ProcessSetup {
  std::map<std::string, std::string> environment = {};  // added; an empty value removes a variable
  bool input = false;        // write() reaches its standard input, which is /dev/null otherwise
  bool terminal = false;     // it runs on a terminal of its own, on which write() types
  bool errorsApart = false;  // standard error is in errors(), not in output()
  std::function<void()> before = {};  // runs in the new process
};

class Process {
 public:
  using Words = std::vector<std::string>;

  explicit Process(const Words& command, const ProcessSetup& setup = {});
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;
  ~Process();

  pid_t id() const { return m_id; }
  bool running();
  // To it and the processes that it has started. Nothing once it has ended: its number may be
  // another's then.
  void signal(int number);
  // Its exit status; 128 + the signal's number for one that was killed; -1 when it does not end.
  int wait(milliseconds limit = kTimeout);
  int stop(int number) { return signal(number), wait(); }

  void write(const std::string& text) const;
  const std::string& output() { return read(m_output); }
  const std::string& errors() { return read(m_errors); }
  int countOf(const std::string& text);
  // Waits until it has written `text` so many times since its start.
  bool says(const std::string& text, int times = 1, milliseconds limit = kTimeout);

  // Waits until its output holds `text` after what the previous call found.
  bool expect(const std::string& text, milliseconds limit = kTimeout);
  // Whether it has done so by now.
  bool hasNext(const std::string& text);
  void skipOutput() { m_found = output().size(); }

  // Memory in KiB: the most that it has had, and what it has now that no file backs.
  long peakMemory() const { return memory("VmHWM:"); }
  long ownMemory() const { return memory("RssAnon:"); }
  milliseconds processorTime() const;
  // Whether its terminal puts lines together and shows what is typed, as a shell needs it.
  bool isTerminalCooked() const;

 private:
  // A file in memory that the program writes to, or its terminal; and what has been read of it.
  struct Stream {
    UniqueFd file;
    std::string text = {};
  };

  static const std::string& read(Stream& stream);
  bool writes(const std::function<bool()>& condition, milliseconds limit);
  long memory(const char* name) const;

  pid_t m_id = -1;
  std::optional<int> m_status;
  UniqueFd m_input;
  Stream m_output;
  Stream m_errors;
  std::size_t m_found = 0;  // where expect() continues
};

}  // namespace lumsar::test
