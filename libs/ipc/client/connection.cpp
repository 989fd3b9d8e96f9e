// A connection from its receiving thread's start to its end. Everything from run() on runs on that
// thread, the rest on any of the client's.
#include "ipc/client/connection.h"

#include <dlfcn.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <csignal>

#include "base/deadline.h"
#include "base/text/bytes.h"
#include "ipc/read_size.h"

namespace lumsar::ipc {
namespace {

using Clock = std::chrono::steady_clock;

// Between reports of what was sent: each one wakes this thread, and nobody waits for it.
constexpr std::chrono::milliseconds kReportInterval{1};

int nextId() {
  static std::atomic<int> last = 0;
  return ++last;
}

bool isMessage(std::span<const unsigned char> message) {
  if (message.size() < kHeaderSize) return false;
  const RedirMsgHeader header = readHeader(message.data());
  return header.magic == kMagic && header.length <= kMaxPayload &&
         message.size() == kHeaderSize + header.length;
}

// The host's signals are for the host's threads: none for this thread, and for those that it
// starts, for as long as this lives.
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

// A library whose callback destroys its client cannot wait for the thread that it runs on, and must
// not be unmapped under it.
void keepLibraryLoaded() {
  Dl_info self = {};
  if (::dladdr(reinterpret_cast<void*>(&keepLibraryLoaded), &self) == 0) return;
  ::dlopen(self.dli_fname, RTLD_LAZY | RTLD_NOLOAD | RTLD_NODELETE);
}

}  // namespace

Connection::Connection(const IpcClientParams& params, std::string path, ConnectionTimeouts timeouts)
    : m_params(params), m_path(std::move(path)), m_timeouts(timeouts), m_id(nextId()) {}

void Connection::start(Opened opened) {
  const SignalsBlocked blocked;
  m_threadRuns = true;
  try {
    m_thread = std::thread([self = shared_from_this(), opened] { self->run(opened); });
  } catch (...) {
    m_threadRuns = false;
    advance(State::Ended);
    throw;
  }
}

int Connection::send(std::span<const unsigned char> message) {
  if (!isMessage(message)) return IPC_ERROR_BAD_MESSAGE;
  if (!connected()) return IPC_ERROR_NOT_CONNECTED;
  const int error = write(message);
  if (error == 0 && m_params.onSend != nullptr && m_sent++ == 0) m_wake.wake();
  return error;
}

int Connection::write(std::span<const unsigned char> first, std::span<const unsigned char> second) {
  const auto result = m_writer.write(m_socket.get(), first, second, m_timeouts.send);
  if (result.broken) {
    m_endError = result.error;
    ::shutdown(m_socket.get(), SHUT_RDWR);
  }
  return result.error;
}

int Connection::call(std::span<const unsigned char> request, unsigned char* reply,
                     unsigned int* replyLength) {
  if (onReceivingThread()) return IPC_ERROR_IN_CALLBACK;
  if (!isMessage(request)) return IPC_ERROR_BAD_MESSAGE;
  if (!connected()) return IPC_ERROR_NOT_CONNECTED;
  PendingCalls::Call call;
  call.reply = reply;
  call.capacity = reply != nullptr ? *replyLength : 0;
  const std::uint64_t number = m_calls.add(call);
  RedirMsgHeader header = readHeader(request.data());
  setCallNumber(header, number);
  const int error = write(base::bytesOf(header), request.subspan(kHeaderSize));
  if (error != 0) {
    m_calls.forget(number);
    return error;
  }
  const int result = m_calls.wait(number, call, m_timeouts.call);
  if (result == 0 || result == kIpcReplyTooLarge) {
    *replyLength = static_cast<unsigned int>(call.size);
  }
  return result;
}

void Connection::stop() {
  std::unique_lock lock(m_gate);
  m_state = State::Stopped;
  // Before the receiving thread can see the socket's end and give that as the reason.
  m_calls.fail(IPC_ERROR_DISCONNECTED);
  if (m_socket) ::shutdown(m_socket.get(), SHUT_RDWR);
  m_wake.wake();
  if (onReceivingThread()) return;
  m_callbackEnded.wait_for(lock, kCallbackTimeout, [this] { return !m_inCallback; });
}

void Connection::advance(State state) {
  const std::lock_guard lock(m_gate);
  m_state = std::max(m_state.load(), state);
}

void Connection::join() {
  if (!m_thread.joinable()) return;
  if (onReceivingThread()) {
    keepLibraryLoaded();
    m_thread.detach();
  } else {
    m_thread.join();
  }
}

void Connection::run(Opened opened) noexcept {
  m_threadId = std::this_thread::get_id();
  int error = IPC_ERROR_SYSTEM;
  try {
    error = opened == Opened::Yes ? 0 : open();
    if (error == 0) {
      callBack([this] {
        if (m_params.onConnect) m_params.onConnect(m_id, m_params.userData);
      });
      error = receive();
    }
  } catch (...) {  // out of memory for a message
    error = IPC_ERROR_SYSTEM;
  }
  end(error);
}

int Connection::receive() {
  for (auto nextReport = Clock::now();;) {
    if (const int error = deliverComplete(); error != 0) return error;
    pollfd fds[] = {{m_socket.get(), POLLIN, 0}, {m_wake.get(), POLLIN, 0}};
    const int early = base::pollTimeout(nextReport);
    if (early > 0 ? ::poll(fds, 1, early) < 0 : ::poll(fds, 2, -1) < 0) continue;
    if (fds[1].revents != 0) {
      reportSent();
      nextReport = Clock::now() + kReportInterval;
    }
    if (fds[0].revents == 0) continue;
    if (const int error = readSome(); error != 0) return error;
  }
}

int Connection::readSome() {
  ssize_t size = 0;
  do {
    const auto room = m_assembler.prepare(readSize(m_assembler.missing()));
    size = ::recv(m_socket.get(), room.data(), room.size(), MSG_DONTWAIT);
    if (size > 0) m_assembler.commit(static_cast<std::size_t>(size));
  } while (size > 0 && isWorthACall(m_assembler.missing()));
  if (size > 0 || (size < 0 && (errno == EAGAIN || errno == EINTR))) return 0;
  const int endError = m_endError;
  return endError != 0 ? endError : IPC_ERROR_SERVICE_GONE;
}

int Connection::deliverComplete() {
  for (auto message = m_assembler.next(); !message.empty(); message = m_assembler.next()) {
    deliver(message);
  }
  m_assembler.trim();
  return receivedFault();
}

int Connection::receivedFault() const {
  switch (m_assembler.fault()) {
    case MessageAssembler::Fault::Magic:
      return IPC_ERROR_BAD_MAGIC;
    case MessageAssembler::Fault::TooLong:
      return IPC_ERROR_TOO_LONG;
    case MessageAssembler::Fault::None:
      break;
  }
  return 0;
}

void Connection::deliver(std::span<unsigned char> message) {
  const RedirMsgHeader header = readHeader(message.data());
  if (const std::uint64_t number = callNumber(header); number != 0) {
    m_calls.complete(number, message);
    return;
  }
  if (header.type >= kIpcOwnTypes || m_params.onReceive == nullptr) return;
  callBack([&] {
    m_params.onReceive(m_id, message.data(), static_cast<int>(message.size()), m_params.userData);
  });
}

void Connection::reportSent() {
  m_wake.clear();
  for (unsigned int sent = m_sent.exchange(0); sent > 0; --sent) {
    callBack([this] { m_params.onSend(m_id, m_params.userData); });
  }
}

void Connection::end(int error) {
  advance(State::Ended);
  m_calls.fail(error);
  if (m_socket) ::shutdown(m_socket.get(), SHUT_RDWR);
  callBack([&] {
    if (m_params.onClose) m_params.onClose(m_id, error, m_params.userData);
  });
  m_threadRuns = false;
}

// Unless stop() came first. What a callback throws ends that callback only.
template <class Callback>
void Connection::callBack(Callback callback) {
  {
    const std::lock_guard lock(m_gate);
    if (m_state == State::Stopped) return;
    m_inCallback = true;
  }
  try {
    callback();
  } catch (...) {  // not into this thread; its result is not used anyway
  }
  {
    const std::lock_guard lock(m_gate);
    m_inCallback = false;
  }
  m_callbackEnded.notify_all();
}

}  // namespace lumsar::ipc
