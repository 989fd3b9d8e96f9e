// HostRecord: the host's callables, which record bytes, addresses and threads.
// One per process, for an RDP host's send function is a plain function.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "lumsar/plugin.h"
#include "support/plugin/wire.h"

namespace lumsar::test {

struct Sent {
  Bytes bytes;
  unsigned char* address = nullptr;
  std::thread::id thread;
};

struct Posted {
  int event = 0;
  bool hasData = false;
  int length = 0;
  Bytes data;
  std::thread::id thread;
};

class HostRecord {
 public:
  static HostRecord& instance();

  // The script: a result for each send, then `sendResult`; what to throw, if anything.
  std::deque<int> sendResults;
  int sendResult = 0;
  std::string sendThrows;
  std::string eventThrows;

  SpiceSendFunc sendFunc();
  SpicePostEventFunc postEventFunc();
  static int rdpSend(unsigned char* data, int length);

  std::vector<Sent> takeSent();
  // As takeSent, only the bytes.
  std::vector<Bytes> takeBytes();
  // The events since the last call, after waiting for `count` of them (no longer than kTimeout).
  std::vector<Posted> takeEvents(std::size_t count = 0);

 private:
  int send(unsigned char* data, int length);
  void post(int event, const char* data, int length);

  std::mutex m_mutex;
  std::condition_variable m_changed;
  std::vector<Sent> m_sent;
  std::vector<Posted> m_events;
};

}  // namespace lumsar::test
