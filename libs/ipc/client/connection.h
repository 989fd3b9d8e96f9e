// Connection: one connection of a client to the camera service, from the attempt to its end, with
// the thread that receives. Made by IpcClient, one for each attempt and never used again, so that
// nothing late of an old connection can touch a new one.
//
//   caller's threads                    receiving thread
//   ----------------                    ----------------
//   open()  connect, request, accept    [open() here when connecting in the background]
//   start() ------------------------->  onConnect
//   send(), call()  any thread          onReceive, onSend ...
//   stop()  ---- wake-up ------------>  onClose, unless stop() came first
//   join()  <-------------------------
//
// Thread-safe, except that join() must come last.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <thread>

#include "base/system/event_fd.h"
#include "ipc/client/pending_calls.h"
#include "ipc/client/writer.h"
#include "lumsar/assembler.h"
#include "lumsar/ipc_transport.h"
#include "lumsar/vdi_ipc.h"

namespace lumsar::ipc {

struct ConnectionTimeouts {
  std::chrono::milliseconds connect = kIpcConnectTimeout;
  std::chrono::milliseconds send = kIpcSendTimeout;
  std::chrono::milliseconds call = kIpcCallTimeout;
};

class Connection : public std::enable_shared_from_this<Connection> {
 public:
  // `params` are copied: callbacks never read the caller's record. Throws std::system_error.
  Connection(const IpcClientParams& params, std::string path, ConnectionTimeouts timeouts);

  // Connects, sends the connect request and waits for the accept. Returns 0 or an IpcError.
  int open();
  enum class Opened { Yes, NotYet };
  // Starts the receiving thread, which opens the connection first if it is not open yet.
  void start(Opened opened);

  int send(std::span<const unsigned char> message);
  int call(std::span<const unsigned char> request, unsigned char* reply, unsigned int* replyLength);

  // After this no callback begins. Waits for one that is running for kCallbackTimeout only: a
  // receiving thread that was let through just before, and got no processor for longer than that,
  // comes to its callback's first instruction after this has returned.
  static constexpr std::chrono::milliseconds kCallbackTimeout{20};
  void stop();
  // Waits for the receiving thread; on that thread itself, lets it go.
  void join();

  bool connected() const { return m_state == State::Connected; }
  // Neither connected nor connecting any more.
  bool ended() const { return m_state >= State::Ended; }
  // The receiving thread is about to end, or there was none: join() would not wait.
  bool finished() const { return !m_threadRuns; }

 private:
  // Only ever grows.
  enum class State {
    Opening,
    Connected,
    Ended,    // by an error or by the service: only onClose is still to be called
    Stopped,  // by stop(): no callback begins any more
  };
  void advance(State state);

  int connectSocket(std::chrono::steady_clock::time_point deadline);
  int requestConnection();
  int awaitAccept(std::chrono::steady_clock::time_point deadline);
  int pause(int events, std::chrono::steady_clock::time_point deadline) const;

  void run(Opened opened) noexcept;
  int write(std::span<const unsigned char> first, std::span<const unsigned char> second = {});
  int receive();
  int readSome();
  int receivedFault() const;
  int deliverComplete();
  void deliver(std::span<unsigned char> message);
  void reportSent();
  void end(int error);
  template <class Callback>
  void callBack(Callback callback);
  bool onReceivingThread() const { return m_threadId.load() == std::this_thread::get_id(); }

  const IpcClientParams m_params;
  const std::string m_path;
  const ConnectionTimeouts m_timeouts;
  const int m_id;
  base::UniqueFd m_socket;
  const base::EventFd m_wake;  // something is to be done besides receiving
  Writer m_writer;
  PendingCalls m_calls;
  MessageAssembler m_assembler;  // receiving thread only, once open

  std::thread m_thread;
  std::atomic<std::thread::id> m_threadId;
  std::atomic<bool> m_threadRuns = false;
  std::atomic<int> m_endError = 0;       // why this side ended the stream, if it did
  std::atomic<unsigned int> m_sent = 0;  // messages sent and not yet reported by onSend

  std::mutex m_gate;  // of all changes of what follows
  std::condition_variable m_callbackEnded;
  std::atomic<State> m_state = State::Opening;
  bool m_inCallback = false;
};

}  // namespace lumsar::ipc
