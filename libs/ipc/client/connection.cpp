// Connection: see connection.h; its beginning is in connection_open.cpp. Everything from run() on
// runs on the receiving thread, the rest on any of the client's.
#include "ipc/client/connection.h"

#include <dlfcn.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>

#include "ipc/client/signals_blocked.h"
#include "ipc/read_size.h"

namespace lumsar::ipc {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds kEntryGrace{20};

int nextId() {
  static std::atomic<int> last = 0;
  return ++last;
}

bool wholeMessage(std::span<const unsigned char> message) {
  if (message.size() < kHeaderSize) return false;
  const RedirMsgHeader header = readHeader(message.data());
  return header.magic == kMagic && header.length <= kMaxPayload &&
         message.size() == kHeaderSize + header.length;
}

// A library whose callback destroys its client cannot wait for the thread that it runs on, and must
// not be unmapped under it.
void keepLibraryLoaded() {
  Dl_info self = {};
  if (::dladdr(reinterpret_cast<void*>(&keepLibraryLoaded), &self) == 0) return;
  ::dlopen(self.dli_fname, RTLD_LAZY | RTLD_NOLOAD | RTLD_NODELETE);
}

}  // namespace

Connection::Connection(const IpcClientParams& params, std::string path, ConnectionLimits limits)
    : m_params(params),
      m_path(std::move(path)),
      m_limits(limits),
      m_id(nextId()),
      m_wake(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

void Connection::start(Opened opened) {
  const SignalsBlocked blocked;
  m_finished = false;
  try {
    m_thread = std::thread([self = shared_from_this(), opened] { self->run(opened); });
  } catch (...) {
    m_finished = true;
    m_ended = true;
    throw;
  }
}

int Connection::send(std::span<const unsigned char> message) {
  if (!wholeMessage(message)) return IPC_ERROR_BAD_MESSAGE;
  if (!m_connected) return IPC_ERROR_NOT_CONNECTED;
  const auto result = m_writer.write(m_socket.get(), message, {}, m_limits.send);
  if (result.broken) {
    m_endError = result.error;
    ::shutdown(m_socket.get(), SHUT_RDWR);
  }
  if (result.error == 0 && m_params.onSend != nullptr && m_sent++ == 0) {
    ::eventfd_write(m_wake.get(), 1);
  }
  return result.error;
}

int Connection::call(std::span<const unsigned char> request, unsigned char* reply,
                     unsigned int* replyLength) {
  if (m_threadId.load() == std::this_thread::get_id()) return IPC_ERROR_IN_CALLBACK;
  if (!wholeMessage(request)) return IPC_ERROR_BAD_MESSAGE;
  if (!m_connected) return IPC_ERROR_NOT_CONNECTED;
  PendingCalls::Call call;
  call.reply = reply;
  call.capacity = reply != nullptr ? *replyLength : 0;
  const std::uint64_t number = m_calls.add(call);
  RedirMsgHeader header = readHeader(request.data());
  setCallNumber(header, number);
  const auto* head = reinterpret_cast<const unsigned char*>(&header);
  const auto sent = m_writer.write(m_socket.get(), {head, sizeof header},
                                   request.subspan(kHeaderSize), m_limits.send);
  if (sent.error != 0) {
    m_calls.forget(number);
    if (sent.broken) {
      m_endError = sent.error;
      ::shutdown(m_socket.get(), SHUT_RDWR);
    }
    return sent.error;
  }
  const int result = m_calls.wait(number, call, m_limits.call);
  if (result == 0 || result == kIpcReplyTooLarge) {
    *replyLength = static_cast<unsigned int>(call.size);
  }
  return result;
}

void Connection::stop() {
  std::unique_lock lock(m_gate);
  m_stopped = true;
  m_connected = false;
  m_ended = true;
  // Before the receiving thread can see the socket's end and give that as the reason.
  m_calls.fail(IPC_ERROR_DISCONNECTED);
  if (m_socket) ::shutdown(m_socket.get(), SHUT_RDWR);
  ::eventfd_write(m_wake.get(), 1);
  if (m_threadId.load() == std::this_thread::get_id()) return;
  const auto deadline = Clock::now() + kEntryGrace;
  m_gateChanged.wait_until(lock, deadline, [this] { return !m_inCallback; });
}

void Connection::join() {
  if (!m_thread.joinable()) return;
  if (m_threadId.load() == std::this_thread::get_id()) {
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
      enter([this] {
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
  for (;;) {
    if (const int error = deliverWhole(); error != 0) return error;
    pollfd fds[] = {{m_wake.get(), POLLIN, 0}, {m_socket.get(), POLLIN, 0}};
    if (::poll(fds, 2, -1) < 0) continue;
    if (fds[0].revents != 0) reportSent();
    if (fds[1].revents == 0) continue;
    if (const int error = readSome(); error != 0) return error;
  }
}

int Connection::readSome() {
  const auto room = m_assembler.prepare(readSize(m_assembler.missing()));
  const ssize_t size = ::recv(m_socket.get(), room.data(), room.size(), MSG_DONTWAIT);
  if (size > 0) m_assembler.commit(static_cast<std::size_t>(size));
  if (size > 0 || (size < 0 && (errno == EAGAIN || errno == EINTR))) return 0;
  const int endError = m_endError;
  return endError != 0 ? endError : IPC_ERROR_SERVICE_GONE;
}

int Connection::deliverWhole() {
  for (auto message = m_assembler.next(); !message.empty(); message = m_assembler.next()) {
    deliver(message);
  }
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
  enter([&] {
    m_params.onReceive(m_id, message.data(), static_cast<int>(message.size()), m_params.userData);
  });
}

void Connection::reportSent() {
  eventfd_t count = 0;
  ::eventfd_read(m_wake.get(), &count);
  for (unsigned int sent = m_sent.exchange(0); sent > 0; --sent) {
    enter([this] { m_params.onSend(m_id, m_params.userData); });
  }
}

void Connection::end(int error) {
  m_connected = false;
  m_ended = true;
  m_calls.fail(error);
  if (m_socket) ::shutdown(m_socket.get(), SHUT_RDWR);
  enter([&] {
    if (m_params.onClose) m_params.onClose(m_id, error, m_params.userData);
  });
  m_finished = true;
}

// Calls back unless stop() came first. What a callback lets out ends that callback only.
template <class Call>
bool Connection::enter(Call callback) {
  {
    const std::lock_guard lock(m_gate);
    if (m_stopped) return false;
    m_inCallback = true;
  }
  try {
    callback();
  } catch (...) {  // the callback's own fault, and its result is not used anyway
  }
  {
    const std::lock_guard lock(m_gate);
    m_inCallback = false;
  }
  m_gateChanged.notify_all();
  return true;
}

}  // namespace lumsar::ipc
