// IpcClient: what a handle of libvdi_ipc.so stands for. It holds the current connection and those
// that have ended but whose threads still run. Thread-safe, except for its destruction.
#pragma once

#include <memory>
#include <mutex>
#include <vector>

#include "ipc/client/connection.h"

namespace lumsar::ipc {

class IpcClient {
 public:
  explicit IpcClient(IpcClientParams* params, ConnectionTimeouts timeouts = {})
      : m_params(params), m_timeouts(timeouts) {}
  // Disconnects, waits for a running callback and joins all threads.
  ~IpcClient();
  IpcClient(const IpcClient&) = delete;
  IpcClient& operator=(const IpcClient&) = delete;

  int connect(const char* channel);
  int connectInBackground(const char* channel);
  int disconnect();
  bool connected() const;
  int send(std::span<const unsigned char> message);
  int call(std::span<const unsigned char> request, unsigned char* reply, unsigned int* replyLength);

 private:
  int begin(const char* channel, std::shared_ptr<Connection>& connection);
  int startThread(const std::shared_ptr<Connection>& connection, Connection::Opened opened);
  void drop(const std::shared_ptr<Connection>& connection);
  void retireCurrent();
  std::shared_ptr<Connection> current() const;

  IpcClientParams* const m_params;
  const ConnectionTimeouts m_timeouts;
  mutable std::mutex m_mutex;
  std::shared_ptr<Connection> m_current;
  std::vector<std::shared_ptr<Connection>> m_retired;
};

}  // namespace lumsar::ipc
