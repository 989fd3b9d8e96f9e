// The client's end of the transport: what a camera service sends, from the first byte on or once it
// has accepted the client and was asked a synchronous call.
#include "ipc/client/client.h"

#include <poll.h>
#include <sys/socket.h>

#include <array>
#include <condition_variable>
#include <optional>
#include <thread>

#include "base/net/socket_listener.h"
#include "base/system/temporary_directory.h"
#include "fuzz/complete_messages.h"
#include "fuzz/input.h"
#include "protocol/message.h"

namespace {

using namespace lumsar;
using fuzz::require;

constexpr std::size_t kReplyCapacity = 256;

// Serves one client after another on a thread of its own.
class Service {
 public:
  using Stream = std::vector<unsigned char>;

  Service() : m_thread([this] { run(); }) {}
  ~Service() {
    serve(std::nullopt, false);
    m_thread.join();
  }

  std::string path() const { return m_listener.name(); }
  // The next client gets this; an empty one ends the thread.
  void serve(std::optional<Stream> stream, bool accept) {
    std::unique_lock lock(m_mutex);
    m_changed.wait(lock, [this] { return !m_busy; });
    m_stream = std::move(stream);
    m_accept = accept;
    m_busy = true;
    m_changed.notify_all();
  }

 private:
  void run() {
    std::unique_lock lock(m_mutex);
    for (;;) {
      m_changed.wait(lock, [this] { return m_busy; });
      if (!m_stream) return;
      lock.unlock();
      pollfd newcomer = {m_listener.get(), POLLIN, 0};
      require(::poll(&newcomer, 1, -1) == 1, "a client comes");
      speak(base::UniqueFd(::accept4(m_listener.get(), nullptr, nullptr, SOCK_CLOEXEC)).get());
      lock.lock();
      m_busy = false;
      m_changed.notify_all();
    }
  }
  void speak(int client) const {
    if (m_accept) {
      receive(client, kHeaderSize);  // the connect request of a client without a name
      send(client, protocol::Message(IPC_MSG_CONNECT_ACCEPT).bytes());
      receive(client, kHeaderSize);  // the call
    }
    send(client, *m_stream);
    ::shutdown(client, SHUT_WR);
    while (receive(client, 4096) > 0) {
    }
  }
  static ssize_t receive(int socket, std::size_t size) {
    std::vector<unsigned char> bytes(size);
    return ::recv(socket, bytes.data(), size, size == kHeaderSize ? MSG_WAITALL : 0);
  }
  // The client may have hung up.
  static void send(int socket, fuzz::Bytes bytes) {
    static_cast<void>(::send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL));
  }
  base::TemporaryDirectory m_directory;
  base::SocketListener m_listener = base::SocketListener::at({m_directory / "s", {}, 0});
  std::mutex m_mutex;
  std::condition_variable m_changed;
  std::optional<Stream> m_stream;
  bool m_accept = false;
  bool m_busy = false;
  std::thread m_thread;
};

// What a host is told, on the library's thread.
struct Host {
  std::mutex mutex;
  std::condition_variable changed;
  fuzz::Messages messages;
  bool closed = false;

  static int onReceive(int, unsigned char* data, int length, void* self) {
    static_cast<Host*>(self)->messages.emplace_back(data, data + length);
    return 0;
  }
  static int onClose(int, int error, void* userData) {
    require(error != 0, "an end has a reason");
    auto& self = *static_cast<Host*>(userData);
    const std::lock_guard lock(self.mutex);
    self.closed = true;
    self.changed.notify_one();
    return 0;
  }
  void awaitClose() {
    std::unique_lock lock(mutex);
    changed.wait(lock, [this] { return closed; });
  }
};

bool isForHost(const RedirMsgHeader& header) {
  return callNumber(header) == 0 && header.type < kIpcOwnTypes;
}

void checkReply(const fuzz::Messages& stream, int status, std::span<const unsigned char> reply) {
  for (const auto& message : stream) {
    if (callNumber(readHeader(message.data())) != 1) continue;  // the connection's first call
    if (message.size() > kReplyCapacity) {
      return require(status == kIpcReplyTooLarge && reply.size() == message.size(), "its size");
    }
    require(status == 0 && reply.size() == message.size(), "the reply is the caller's");
    return require(
        std::equal(message.begin() + kHeaderSize, message.end(), reply.begin() + kHeaderSize),
        "as it was sent");
  }
  require(status != 0, "no reply is made up");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  static Service service;
  fuzz::Input input(data, size);
  const bool accept = input.byte() % 4 != 0;
  const auto stream = input.rest();
  service.serve(Service::Stream(stream.begin(), stream.end()), accept);

  Host host;
  IpcClientParams params{.onReceive = Host::onReceive, .onClose = Host::onClose, .userData = &host};
  ipc::IpcClient client(&params);
  if (client.connect(service.path().c_str()) != 0) {
    require(!accept, "an accepted client is connected");
    return 0;
  }
  std::array<unsigned char, kReplyCapacity> reply{};
  unsigned int replySize = reply.size();
  const protocol::Message request(IPC_MSG_CAMERA_LIST);
  const int status = client.call(request.bytes(), reply.data(), &replySize);
  host.awaitClose();
  auto sent = fuzz::completeMessages(stream);
  if (!accept) sent.erase(sent.begin());  // the accept
  if (accept) checkReply(sent, status, {reply.data(), replySize});
  std::erase_if(sent, [](const auto& message) { return !isForHost(readHeader(message.data())); });
  require(host.messages == sent, "the host gets the stream's messages");
  return 0;
}
