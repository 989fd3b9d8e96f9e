#include "integration/rdp/camera_service.h"

#include <sys/socket.h>

#include "lumsar/assembler.h"

namespace lumsar::test {
namespace {

std::filesystem::path workingDirectoryOf(const RawPeer& peer) {
  ucred process{};
  socklen_t size = sizeof process;
  getsockopt(peer.fd(), SOL_SOCKET, SO_PEERCRED, &process, &size);
  std::error_code gone;
  return std::filesystem::read_symlink("/proc/" + std::to_string(process.pid) + "/cwd", gone);
}

}  // namespace

CameraService::CameraService(const std::string& path)
    : m_path(path), m_listener(path), m_thread([this] { run(); }) {}

CameraService::~CameraService() {
  m_stopping = true;
  stall(false);
  {
    const std::lock_guard lock(m_mutex);
    if (m_peer.connected()) shutdown(m_peer.fd(), SHUT_RDWR);
  }
  m_thread.join();
  unlink(m_path.c_str());
}

void CameraService::send(View bytes) {
  const std::lock_guard lock(m_mutex);
  m_peer.send(bytes);
}

void CameraService::sendFrame(std::uint32_t sequence, std::size_t size) {
  const Bytes body = frameBody(sequence, noise(size, sequence));
  send(message(IPC_MSG_DATA, record(CameraDataKind::Frame, 0, body, cameraClock())));
}

void CameraService::setList(const std::string& list) {
  const std::lock_guard lock(m_mutex);
  m_list = list;
}

void CameraService::stall(bool stalled) {
  m_stalled = stalled;
  m_stalled.notify_all();
}

bool CameraService::connected() {
  const std::lock_guard lock(m_mutex);
  return m_peer.connected();
}

std::filesystem::path CameraService::directoryAtAccept() {
  const std::lock_guard lock(m_mutex);
  return m_directory;
}

void CameraService::run() {
  while (!m_stopping) {
    RawPeer peer = m_listener.accept(milliseconds(20));
    if (peer.receive().empty()) continue;  // its name
    {
      const std::lock_guard lock(m_mutex);
      m_directory = workingDirectoryOf(peer);
      m_peer = std::move(peer);
      m_peer.send(message(IPC_MSG_CONNECT_ACCEPT));
    }
    serve();
    const std::lock_guard lock(m_mutex);
    m_peer.close();
  }
}

void CameraService::serve() {
  MessageAssembler assembler;
  Bytes buffer(std::size_t{256} << 10U);
  ssize_t size = 0;
  while (!m_stopping && (size = recv(m_peer.fd(), buffer.data(), buffer.size(), 0)) > 0) {
    assembler.append(View(buffer).first(static_cast<std::size_t>(size)));
    for (auto bytes = assembler.next(); !bytes.empty(); bytes = assembler.next()) answer(bytes);
    m_stalled.wait(true);
  }
}

void CameraService::answer(View bytes) {
  const RedirMsgHeader header = headerOf(bytes);
  if (header.type != IPC_MSG_CAMERA_LIST) return m_messages.put(bytes);
  const std::lock_guard lock(m_mutex);
  m_peer.send(callMessage(header.type, m_list, callNumber(header)));
}

}  // namespace lumsar::test
