// libvdi_ipc.so for the RDP tests: carries messages as they are over the Unix socket that
// LUMSAR_TEST_SERVICE names, on which the test plays the camera service. Loaded by the plug-in;
// callbacks come from one thread a connection. Made in a process whose working directory is not
// LUMSAR_TEST_DIRECTORY, it makes no client.
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <condition_variable>
#include <cstdlib>
#include <filesystem>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "lumsar/assembler.h"
#include "lumsar/vdi_ipc.h"

#define LUMSAR_EXPORT extern "C" __attribute__((visibility("default")))

namespace {

using Bytes = std::vector<unsigned char>;
constexpr int kFailed = 101;

int connectTo(const char* path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path == nullptr) return -1;
  std::string(path).copy(address.sun_path, sizeof address.sun_path - 1);
  const int file = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (connect(file, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0) return file;
  close(file);
  return -1;
}

class Client {
 public:
  explicit Client(const lumsar::IpcClientParams& params) : m_params(params) {}
  ~Client() { disconnect(); }

  int connectService() {
    m_file = connectTo(std::getenv("LUMSAR_TEST_SERVICE"));
    if (m_file < 0) return kFailed;
    m_connected = true;
    m_reader = std::thread([this] { read(); });
    return 0;
  }

  int disconnect() {
    if (m_file < 0) return kFailed;
    m_leaving = true;
    shutdown(m_file, SHUT_RDWR);
    m_reader.join();
    close(m_file);
    m_file = -1;
    m_leaving = false;
    return 0;
  }

  bool connected() const { return m_connected; }

  int send(const unsigned char* data, int length) {
    const std::lock_guard lock(m_writing);
    for (int done = 0; done < length;) {
      const auto size = static_cast<std::size_t>(length - done);
      const ssize_t sent = ::send(m_file, data + done, size, MSG_NOSIGNAL);
      if (sent <= 0) return kFailed;
      done += static_cast<int>(sent);
    }
    return 0;
  }

  int call(const unsigned char* request, unsigned length, unsigned char* reply, unsigned* size) {
    std::unique_lock lock(m_waiting);
    m_reply.clear();
    if (send(request, static_cast<int>(length)) != 0) return kFailed;
    m_answered.wait(lock, [this] { return !m_reply.empty() || !m_connected; });
    if (m_reply.empty()) return kFailed;
    const unsigned room = *size;
    *size = static_cast<unsigned>(m_reply.size());
    std::copy_n(m_reply.begin(), std::min(room, *size), reply);
    return room < *size ? lumsar::kIpcReplyTooLarge : 0;
  }

 private:
  void read() {
    lumsar::MessageAssembler assembler;
    Bytes buffer(256 * 1024);
    ssize_t size = 0;
    while ((size = recv(m_file, buffer.data(), buffer.size(), 0)) > 0) {
      assembler.append({buffer.data(), static_cast<std::size_t>(size)});
      for (auto message = assembler.next(); !message.empty(); message = assembler.next()) {
        take(message);
      }
    }
    {
      const std::lock_guard lock(m_waiting);
      m_connected = false;
    }
    m_answered.notify_all();
    if (!m_leaving) m_params.onClose(1, kFailed, m_params.userData);
  }

  void take(std::span<unsigned char> message) {
    if (lumsar::readHeader(message.data()).type == lumsar::IPC_MSG_CAMERA_LIST) {
      const std::lock_guard lock(m_waiting);
      m_reply.assign(message.begin(), message.end());
      m_answered.notify_all();
      return;
    }
    m_params.onReceive(1, message.data(), static_cast<int>(message.size()), m_params.userData);
  }

  lumsar::IpcClientParams m_params;
  int m_file = -1;
  std::atomic<bool> m_connected{false};
  std::atomic<bool> m_leaving{false};
  std::thread m_reader;
  std::mutex m_writing;
  std::mutex m_waiting;
  std::condition_variable m_answered;
  Bytes m_reply;
};

Client* of(void* client) {
  return static_cast<Client*>(client);
}

// Whether the process is where LUMSAR_TEST_DIRECTORY says, if the test cares.
bool isAtHome() {
  const char* home = std::getenv("LUMSAR_TEST_DIRECTORY");
  return home == nullptr || std::filesystem::read_symlink("/proc/self/cwd") == home;
}

}  // namespace

LUMSAR_EXPORT void* VDI_CreateIpcClient(lumsar::IpcClientParams* params) {
  if (!isAtHome()) return nullptr;
  return new Client(*params);  // deleted by VDI_DestroyIpcClient
}
LUMSAR_EXPORT void VDI_DestroyIpcClient(void* client) {
  delete of(client);
}
LUMSAR_EXPORT int VDI_ConnectIpcClient(void* client, const char* /*name*/) {
  return of(client)->connectService();
}
LUMSAR_EXPORT int VDI_AsyncConnectIpcClient(void* client, const char* /*name*/) {
  return of(client)->connectService();
}
LUMSAR_EXPORT int VDI_DisconnectIpcClient(void* client) {
  return of(client)->disconnect();
}
LUMSAR_EXPORT bool VDI_IsIpcClientConnected(void* client) {
  return of(client)->connected();
}
LUMSAR_EXPORT int VDI_IpcClientSendData(void* client, const unsigned char* data, int length) {
  return of(client)->send(data, length);
}
LUMSAR_EXPORT int VDI_IpcClientSyncCall(void* client, const unsigned char* request, unsigned length,
                                        unsigned char* reply, unsigned* size) {
  return of(client)->call(request, length, reply, size);
}
