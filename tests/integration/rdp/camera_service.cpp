#include "integration/rdp/camera_service.h"

#include "integration/rdp/unix_socket.h"
#include "lumsar/assembler.h"

namespace lumsar_test {

CameraService::CameraService(const std::string& path)
    : m_path(path), m_listener(listenAt(path)), m_thread([this] { run(); }) {}

CameraService::~CameraService() {
  m_stopping = true;
  {
    const std::lock_guard lock(m_mutex);
    if (m_client >= 0) shutdown(m_client, SHUT_RDWR);
  }
  m_thread.join();
  close(m_listener);
  unlink(m_path.c_str());
}

void CameraService::send(const Bytes& bytes) {
  const std::lock_guard lock(m_mutex);
  for (std::size_t done = 0; done < bytes.size() && m_client >= 0;) {
    const ssize_t sent = ::send(m_client, bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL);
    if (sent <= 0) return;
    done += static_cast<std::size_t>(sent);
  }
}

bool CameraService::connected() {
  const std::lock_guard lock(m_mutex);
  return m_client >= 0;
}

bool CameraService::waitUntilLeft(milliseconds patience) {
  const auto end = std::chrono::steady_clock::now() + patience;
  while (connected() && std::chrono::steady_clock::now() < end) {
    std::this_thread::sleep_for(milliseconds(5));
  }
  return !connected();
}

void CameraService::run() {
  while (!m_stopping) {
    const int client = acceptSoon(m_listener);
    if (client < 0) continue;
    {
      const std::lock_guard lock(m_mutex);
      m_client = client;
    }
    serve(client);
    const std::lock_guard lock(m_mutex);
    close(client);
    m_client = -1;
  }
}

void CameraService::serve(int client) {
  lumsar::MessageAssembler assembler;
  Bytes buffer(256 * 1024);
  ssize_t size = 0;
  while (!m_stopping && (size = recv(client, buffer.data(), buffer.size(), 0)) > 0) {
    assembler.append({buffer.data(), static_cast<std::size_t>(size)});
    for (auto bytes = assembler.next(); !bytes.empty(); bytes = assembler.next()) take(bytes);
    while (m_stalled && !m_stopping) std::this_thread::sleep_for(milliseconds(5));
  }
}

void CameraService::take(std::span<unsigned char> bytes) {
  if (lumsar::readHeader(bytes.data()).type != lumsar::IPC_MSG_CAMERA_LIST) {
    return m_messages.put(bytes);
  }
  constexpr std::string_view cameras = R"({"cameras":[]})";
  send(message(lumsar::IPC_MSG_CAMERA_LIST,
               {reinterpret_cast<const unsigned char*>(cameras.data()), cameras.size()}));
}

}  // namespace lumsar_test
