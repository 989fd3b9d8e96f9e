// Writer: sends whole messages over one socket, one after another, each within a time limit.
// Used by Connection; called on any of the client's threads.
// Thread-safe: messages of several threads never interleave.
#ifndef LUMSAR_IPC_CLIENT_WRITER_H
#define LUMSAR_IPC_CLIENT_WRITER_H

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
    bool broken = false;  // the message went out in part: the stream is of no more use
  };

  // Sends `first` and `second` as one message. Waits at most `limit`, its turn included.
  Result write(int socket, std::span<const unsigned char> first,
               std::span<const unsigned char> second, std::chrono::milliseconds limit);

 private:
  std::mutex m_mutex;
  std::condition_variable m_turn;
  bool m_busy = false;
  int m_broken = 0;  // the error that cut a message; nothing may follow it
};

}  // namespace lumsar::ipc

#endif
