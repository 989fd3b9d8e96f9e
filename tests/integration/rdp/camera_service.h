// CameraService: the test's own camera service, for one plug-in at a time, over the socket that
// ipc_over_socket.cpp connects to. Listens as long as it lives; its end is a killed service.
// Answers the list call by itself; everything else waits in messages(). send() from any thread.
#ifndef LUMSAR_TESTS_INTEGRATION_RDP_CAMERA_SERVICE_H
#define LUMSAR_TESTS_INTEGRATION_RDP_CAMERA_SERVICE_H

#include <atomic>
#include <mutex>
#include <string>
#include <thread>

#include "integration/rdp/messages.h"

namespace lumsar_test {

class CameraService {
 public:
  explicit CameraService(const std::string& path);
  ~CameraService();
  CameraService(const CameraService&) = delete;
  CameraService& operator=(const CameraService&) = delete;

  MessageQueue& messages() { return m_messages; }
  void send(const Bytes& bytes);
  // Takes nothing as long as it is stalled.
  void stall(bool stalled) { m_stalled = stalled; }
  // Whether a plug-in is connected.
  bool connected();
  // Waits until none is.
  bool waitUntilLeft(milliseconds patience = kPatience);

 private:
  void run();
  void serve(int client);
  void take(std::span<unsigned char> bytes);

  std::string m_path;
  int m_listener;
  std::mutex m_mutex;  // guards the client's descriptor and keeps messages whole
  int m_client = -1;
  std::atomic<bool> m_stopping{false};
  std::atomic<bool> m_stalled{false};
  MessageQueue m_messages;
  std::thread m_thread;
};

}  // namespace lumsar_test

#endif
