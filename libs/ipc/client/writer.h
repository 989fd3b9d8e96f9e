// Writer: sends complete messages over one socket, each within a timeout. Thread-safe: messages of
// several threads never interleave.
#pragma once

#include <sys/uio.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <span>

namespace lumsar::ipc {

class Writer {
 public:
  struct Result {
    int error = 0;        // 0 or an IpcError
    bool broken = false;  // the message was sent in part: the stream is unusable
  };

  // Sends `first` and `second` as one message. The timeout includes waiting for its turn.
  Result write(int socket, std::span<const unsigned char> first,
               std::span<const unsigned char> second, std::chrono::milliseconds timeout);

 private:
  std::mutex m_mutex;
  std::condition_variable m_turn;
  bool m_busy = false;
  int m_broken = 0;  // the error that cut a message; nothing may follow it
};

}  // namespace lumsar::ipc
