// HostProcess: a host program under test, as a process of its own. Its lines (standard output and
// error together) are kept and can be waited for; stop() asks it to end as Ctrl-C does.
#ifndef LUMSAR_TESTS_INTEGRATION_RDP_HOST_PROCESS_H
#define LUMSAR_TESTS_INTEGRATION_RDP_HOST_PROCESS_H

#include <sys/types.h>

#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace lumsar_test {

class HostProcess {
 public:
  using Words = std::vector<std::string>;
  using Variables = std::map<std::string, std::string>;

  // `variables` are added to this process's environment; an empty value removes one.
  HostProcess(const Words& words, const Variables& variables);
  ~HostProcess();
  HostProcess(const HostProcess&) = delete;
  HostProcess& operator=(const HostProcess&) = delete;

  // Waits until a line that holds `text` has come `times` times since the start.
  bool says(const std::string& text, int times = 1,
            std::chrono::milliseconds patience = std::chrono::seconds(20));
  int countOf(const std::string& text) const;
  std::string output() const;
  // The most memory that it has had so far, in KiB.
  long peakMemory() const;
  // The processor time that it has had so far.
  std::chrono::milliseconds processorTime() const;

  int stop();  // exit code, or minus the signal that killed it
  int wait();  // as stop(), but it has to end by itself; it is killed when it does not

 private:
  void read(int pipe);

  pid_t m_process = -1;
  int m_exitCode = 0;
  mutable std::mutex m_mutex;
  std::condition_variable m_grown;
  std::string m_output;
  bool m_ended = false;
  std::thread m_reader;
};

}  // namespace lumsar_test

#endif
