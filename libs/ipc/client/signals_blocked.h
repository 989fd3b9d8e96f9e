// Keeps all signals from the calling thread, and from threads that it starts, for a while.
#ifndef LUMSAR_IPC_CLIENT_SIGNALS_BLOCKED_H
#define LUMSAR_IPC_CLIENT_SIGNALS_BLOCKED_H

#include <pthread.h>

#include <csignal>

namespace lumsar::ipc {

// The host's signals are for the host's threads.
class SignalsBlocked {
 public:
  SignalsBlocked() {
    sigset_t all;
    sigfillset(&all);
    ::pthread_sigmask(SIG_SETMASK, &all, &m_before);
  }
  ~SignalsBlocked() { ::pthread_sigmask(SIG_SETMASK, &m_before, nullptr); }
  SignalsBlocked(const SignalsBlocked&) = delete;
  SignalsBlocked& operator=(const SignalsBlocked&) = delete;

 private:
  sigset_t m_before = {};
};

}  // namespace lumsar::ipc

#endif
