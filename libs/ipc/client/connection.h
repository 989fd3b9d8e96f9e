// Connection: one connection of a client to the camera service, from the attempt to its end, with
// the thread that receives. Made by IpcClient, one for each attempt and never used again, so that
// nothing late of an old connection can touch a new one.
//
//   caller's threads                    receiving thread
//   ----------------                    ----------------
//   open()  connect, introduction,      [open() here when connecting in the background]
//           welcome                     onConnect
//   start() ------------------------->  onReceive, onSend ...
//   send(), call()  any thread          onClose, unless stop() came first
//   stop()  ---- stop event --------->  ends
//   join()  <-------------------------
//
// Thread-safe, except that join() must come last.
#ifndef LUMSAR_IPC_CLIENT_CONNECTION_H
#define LUMSAR_IPC_CLIENT_CONNECTION_H

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <thread>

#include "base/fd.h"
#include "ipc/client/pending_calls.h"
#include "ipc/client/writer.h"
#include "lumsar/assembler.h"
#include "lumsar/ipc_transport.h"
#include "lumsar/vdi_ipc.h"

namespace lumsar::ipc {

struct ConnectionLimits {
  std::chrono::milliseconds connect = kIpcConnectLimit;
  std::chrono::milliseconds send = kIpcSendLimit;
  std::chrono::milliseconds call = kIpcCallLimit;
};

class Connection : public std::enable_shared_from_this<Connection> {
 public:
  // `params` are copied: callbacks never read the caller's record.
  Connection(const IpcClientParams& params, std::string path, ConnectionLimits limits);

  // Connects, introduces the client and waits for the welcome. Returns 0 or an IpcError.
  int open();
  enum class Opened { Yes, NotYet };
  // Starts the receiving thread, which opens the connection first if it is not open yet.
  void start(Opened opened);

  int send(std::span<const unsigned char> message);
  int call(std::span<const unsigned char> request, unsigned char* reply, unsigned int* replyLength);

  // After this no callback is begun. Does not wait for one that is running, apart from a short
  // grace: a receiving thread that was let through just before, and got no processor for longer
  // than that, comes to its callback's first instruction only after this has returned.
  void stop();
  // Waits for the receiving thread; on that thread itself, lets it go.
  void join();

  bool connected() const { return m_connected; }
  // The receiving thread is about to end, or there was none: join() would not wait.
  bool finished() const { return m_finished; }
  // Neither connected nor connecting any more.
  bool ended() const { return m_ended; }

 private:
  int connectSocket(std::chrono::steady_clock::time_point deadline);
  int introduce();
  int awaitWelcome(std::chrono::steady_clock::time_point deadline);
  int pause(int events, std::chrono::steady_clock::time_point deadline) const;

  void run(Opened opened) noexcept;
  int receive();
  int readSome();
  int deliverWhole();
  void deliver(std::span<unsigned char> message);
  void reportSent();
  void end(int error);
  template <class Call>
  bool enter(Call callback);

  const IpcClientParams m_params;
  const std::string m_path;
  const ConnectionLimits m_limits;
  const int m_id;
  base::UniqueFd m_socket;
  base::UniqueFd m_wake;  // an event counter: something is to be done besides receiving
  Writer m_writer;
  PendingCalls m_calls;
  MessageAssembler m_assembler;  // receiving thread only, once open

  std::thread m_thread;
  std::atomic<std::thread::id> m_threadId;
  std::atomic<bool> m_connected = false;
  std::atomic<bool> m_finished = true;
  std::atomic<bool> m_ended = false;
  std::atomic<int> m_endError = 0;       // why this side ended the stream, if it did
  std::atomic<unsigned int> m_sent = 0;  // messages sent and not yet reported by onSend

  std::mutex m_gate;  // decides whether a callback may begin
  std::condition_variable m_gateChanged;
  bool m_stopped = false;
  bool m_inCallback = false;
};

}  // namespace lumsar::ipc

#endif
