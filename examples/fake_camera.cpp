// The smallest IPC library: one camera, which shows the JPEG file that $FAKE_CAMERA_JPEG names.
// There is no camera service: what one would do is done here, in the client's thread.
#include <lumsar/camera_data.h>
#include <lumsar/message.h>
#include <lumsar/vdi_ipc.h>

#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

namespace {

using lumsar::CameraDataKind;

constexpr const char kId[] = "fake:Front", kName[] = "Front";
constexpr const char kList[] = R"({"cameras": [{"id": "fake:Front", "name": "Front"}]})";
constexpr std::uint16_t kWidth = 320, kHeight = 240;
constexpr std::chrono::milliseconds kInterval{100};

template <class Fields>
std::string bytesOf(const Fields& fields) {
  return {reinterpret_cast<const char*>(&fields), sizeof fields};
}

std::string message(std::uint32_t type, const std::string& payload) {
  lumsar::RedirMsgHeader header;
  header.type = type;
  header.length = static_cast<std::uint32_t>(payload.size());
  return bytesOf(header) + payload;
}

// A camera data message of the one camera, whose number is 1.
std::string cameraData(CameraDataKind kind, const std::string& body) {
  const lumsar::CameraDataHeader header{static_cast<std::uint16_t>(kind), 0, 1,
                                        lumsar::cameraClock()};
  return message(lumsar::IPC_MSG_DATA, bytesOf(header) + body);
}

std::string announced() {
  return cameraData(CameraDataKind::Announced,
                    bytesOf(lumsar::CameraAnnounced{
                        0, 0, kWidth, kHeight, std::chrono::microseconds(kInterval).count(),
                        lumsar::kEncodingMjpg, sizeof kId - 1, sizeof kName - 1}) +
                        kId + kName);
}

class Client {
 public:
  explicit Client(const lumsar::IpcClientParams& params) : m_params(params) {
    const char* path = std::getenv("FAKE_CAMERA_JPEG");
    std::ifstream file(path != nullptr ? path : "", std::ios::binary);
    m_jpeg.assign(std::istreambuf_iterator<char>(file), {});
  }
  ~Client() { disconnect(), join(); }

  void connect() {
    join();
    m_connected = true;
    m_thread = std::thread([this] { run(); });
  }
  // Does not wait for a callback that is running, which may itself be what called it.
  void disconnect() {
    const std::lock_guard lock(m_mutex);
    m_connected = m_shared = m_started = false;
    m_changed.notify_all();
  }
  bool isConnected() {
    const std::lock_guard lock(m_mutex);
    return m_connected;
  }

  // A message of the host or, as camera data, of the VM.
  void receive(const unsigned char* data) {
    const std::lock_guard lock(m_mutex);
    switch (lumsar::readHeader(data).type) {
      case lumsar::IPC_MSG_SHARE:  // its document says which camera; there is only one
      case lumsar::IPC_MSG_REDIRECT_ALL:
        m_shared = true;
        break;
      case lumsar::IPC_MSG_UNSHARE:
      case lumsar::IPC_MSG_UNSHARE_ALL:
        m_shared = m_started = false;
        break;
      case lumsar::IPC_MSG_DATA: {
        const auto kind = lumsar::readField(data, lumsar::kHeaderSize) & 0xFFFFU;
        if (kind == static_cast<std::uint32_t>(CameraDataKind::Start)) m_started = true;
        if (kind == static_cast<std::uint32_t>(CameraDataKind::Stop)) m_started = false;
        break;
      }
    }
    m_changed.notify_all();
  }

 private:
  void join() {
    if (m_thread.joinable()) m_thread.join();
  }

  // Announces the camera when it is shared, and sends frames while the VM has a consumer.
  void run() {
    std::unique_lock lock(m_mutex);
    for (bool wasShared = false; m_connected;) {
      if (m_shared != wasShared) {
        wasShared = m_shared;
        deliver(lock, m_shared ? announced() : cameraData(CameraDataKind::Removed, "unshared"));
      } else if (m_started) {
        const lumsar::CameraFrame frame{++m_sequence, kWidth, kHeight, lumsar::kEncodingMjpg,
                                        lumsar::kFrameIsKey};
        deliver(lock, cameraData(CameraDataKind::Frame, bytesOf(frame) + m_jpeg));
        m_changed.wait_for(lock, kInterval, [&] { return !m_connected; });
      } else {
        m_changed.wait(lock);
      }
    }
  }

  // Callbacks run without the lock, as the receiver may call any of the eight functions.
  void deliver(std::unique_lock<std::mutex>& lock, std::string bytes) {
    lock.unlock();
    m_params.onReceive(1, reinterpret_cast<unsigned char*>(bytes.data()),
                       static_cast<int>(bytes.size()), m_params.userData);
    lock.lock();
  }

  const lumsar::IpcClientParams m_params;
  std::string m_jpeg;
  std::mutex m_mutex;
  std::condition_variable m_changed;
  bool m_connected = false, m_shared = false, m_started = false;
  std::uint32_t m_sequence = 0;
  std::thread m_thread;
};

Client& clientOf(void* client) {
  return *static_cast<Client*>(client);
}

}  // namespace

// A library for others checks what it gets and returns the codes of lumsar/ipc_transport.h.
#define EXPORT extern "C" __attribute__((visibility("default")))

EXPORT void* VDI_CreateIpcClient(lumsar::IpcClientParams* params) {
  return std::make_unique<Client>(*params).release();
}
EXPORT void VDI_DestroyIpcClient(void* client) {
  const std::unique_ptr<Client> owner(&clientOf(client));
}
EXPORT int VDI_ConnectIpcClient(void* client, const char* /*ipcName*/) {
  clientOf(client).connect();
  return 0;
}
EXPORT int VDI_AsyncConnectIpcClient(void* client, const char* ipcName) {
  return VDI_ConnectIpcClient(client, ipcName);
}
EXPORT int VDI_DisconnectIpcClient(void* client) {
  clientOf(client).disconnect();
  return 0;
}
EXPORT bool VDI_IsIpcClientConnected(void* client) {
  return clientOf(client).isConnected();
}
EXPORT int VDI_IpcClientSendData(void* client, const unsigned char* data, int /*length*/) {
  clientOf(client).receive(data);
  return 0;
}
// The host's "list".
EXPORT int VDI_IpcClientSyncCall(void* /*client*/, const unsigned char* /*request*/,
                                 unsigned int /*requestLength*/, unsigned char* reply,
                                 unsigned int* replyLength) {
  const std::string list = message(lumsar::IPC_MSG_CAMERA_LIST, kList);
  const bool fits = list.size() <= *replyLength;
  if (fits) std::memcpy(reply, list.data(), list.size());
  *replyLength = static_cast<unsigned int>(list.size());
  return fits ? 0 : lumsar::kIpcReplyTooLarge;
}
