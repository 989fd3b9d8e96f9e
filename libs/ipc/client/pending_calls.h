// PendingCalls: the synchronous calls of one connection that wait for their reply. Thread-safe.
// A reply goes straight from the receive buffer to the caller's.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <mutex>
#include <span>

namespace lumsar::ipc {

class PendingCalls {
 public:
  struct Call {
    unsigned char* reply = nullptr;
    std::size_t capacity = 0;
    std::size_t size = 0;  // of the reply, also when it did not fit
    int result = 0;
    bool done = false;
  };

  // Registers `call`, which must stay where it is until wait() or forget(). Returns its number.
  std::uint64_t add(Call& call);
  // Waits for the reply. Returns 0, kIpcReplyTooLarge or an IpcError.
  int wait(std::uint64_t number, Call& call, std::chrono::milliseconds timeout);
  void forget(std::uint64_t number);

  // Hands a reply over; a late one is dropped.
  void complete(std::uint64_t number, std::span<const unsigned char> reply);
  // Ends all calls, now and to come, with `error`.
  void fail(int error);

 private:
  bool take(std::uint64_t number, std::span<const unsigned char> reply);

  std::mutex m_mutex;
  std::condition_variable m_changed;
  std::map<std::uint64_t, Call*> m_calls;
  std::uint64_t m_last = 0;
  int m_failed = 0;
};

}  // namespace lumsar::ipc
