// The test's own camera service, for one host at a time. It listens as long as it lives; its end is
// a killed service. It answers the list call by itself; everything else waits in messages().
#pragma once

#include <atomic>
#include <filesystem>
#include <mutex>
#include <string>
#include <thread>

#include "support/message_queue.h"
#include "support/raw_peer.h"

namespace lumsar::test {

class CameraService {
 public:
  explicit CameraService(const std::string& path);
  ~CameraService();
  CameraService(const CameraService&) = delete;
  CameraService& operator=(const CameraService&) = delete;

  MessageQueue& messages() { return m_messages; }
  // From any thread.
  void send(View bytes);
  // Its cameras, as the list call answers; none without it. From any thread.
  void setList(const std::string& list);
  // A frame that looks like nothing in particular.
  void sendFrame(std::uint32_t sequence, std::size_t size);
  // Reads nothing as long as it is stalled.
  void stall(bool stalled);
  bool connected();
  // The latest host's working directory while it was being accepted, and so waited.
  std::filesystem::path directoryAtAccept();

 private:
  void run();
  void serve();
  void answer(View bytes);

  const std::string m_path;
  const RawListener m_listener;
  std::mutex m_mutex;  // guards the connection's state and keeps messages whole
  RawPeer m_peer;
  std::string m_list = R"({"cameras":[]})";
  std::filesystem::path m_directory;
  std::atomic<bool> m_stopping{false};
  std::atomic<bool> m_stalled{false};
  MessageQueue m_messages;
  std::thread m_thread;
};

}  // namespace lumsar::test
