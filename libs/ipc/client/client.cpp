// No callback is made and nothing is waited for with the mutex held.
#include "ipc/client/client.h"

#include <system_error>
#include <utility>

#include "ipc/channel_path.h"

namespace lumsar::ipc {

IpcClient::~IpcClient() {
  disconnect();
  std::vector<std::shared_ptr<Connection>> retired;
  {
    const std::lock_guard lock(m_mutex);
    retireCurrent();
    retired.swap(m_retired);
  }
  for (const auto& connection : retired) connection->join();
}

int IpcClient::connect(const char* channel) {
  std::shared_ptr<Connection> connection;
  if (const int error = begin(channel, connection); error != 0) return error;
  int error = connection->open();
  if (error == 0) error = startThread(connection, Connection::Opened::Yes);
  if (error != 0) drop(connection);
  return error;
}

int IpcClient::connectInBackground(const char* channel) {
  std::shared_ptr<Connection> connection;
  if (const int error = begin(channel, connection); error != 0) return error;
  const int error = startThread(connection, Connection::Opened::NotYet);
  if (error != 0) drop(connection);
  return error;
}

int IpcClient::begin(const char* channel, std::shared_ptr<Connection>& connection) {
  auto [error, path, fromName] = channelPath(channel);
  if (error != 0) return error;
  const std::lock_guard lock(m_mutex);
  if (m_current && !m_current->ended()) return IPC_ERROR_ALREADY_CONNECTED;
  retireCurrent();
  std::erase_if(m_retired, [](const auto& old) {
    if (!old->finished()) return false;
    old->join();
    return true;
  });
  try {
    connection = std::make_shared<Connection>(*m_params, std::move(path), m_timeouts);
  } catch (const std::system_error&) {
    return IPC_ERROR_SYSTEM;
  }
  m_current = connection;
  return 0;
}

int IpcClient::startThread(const std::shared_ptr<Connection>& connection,
                           Connection::Opened opened) {
  const std::lock_guard lock(m_mutex);
  if (m_current != connection) return IPC_ERROR_DISCONNECTED;
  try {
    connection->start(opened);
  } catch (const std::system_error&) {
    return IPC_ERROR_SYSTEM;
  }
  return 0;
}

void IpcClient::drop(const std::shared_ptr<Connection>& connection) {
  connection->stop();
  const std::lock_guard lock(m_mutex);
  if (m_current == connection) m_current.reset();
}

void IpcClient::retireCurrent() {
  if (m_current) m_retired.push_back(std::exchange(m_current, nullptr));
}

int IpcClient::disconnect() {
  std::shared_ptr<Connection> connection;
  {
    const std::lock_guard lock(m_mutex);
    if (!m_current) return IPC_ERROR_NOT_CONNECTED;
    connection = m_current;
    retireCurrent();
  }
  // One that has ended by itself is stopped too: its onClose may not have begun yet.
  const bool ended = connection->ended();
  connection->stop();
  return ended ? IPC_ERROR_NOT_CONNECTED : 0;
}

std::shared_ptr<Connection> IpcClient::current() const {
  const std::lock_guard lock(m_mutex);
  return m_current;
}

bool IpcClient::connected() const {
  const auto connection = current();
  return connection && connection->connected();
}

int IpcClient::send(std::span<const unsigned char> message) {
  const auto connection = current();
  return connection ? connection->send(message) : IPC_ERROR_NOT_CONNECTED;
}

int IpcClient::call(std::span<const unsigned char> request, unsigned char* reply,
                    unsigned int* replyLength) {
  const auto connection = current();
  return connection ? connection->call(request, reply, replyLength) : IPC_ERROR_NOT_CONNECTED;
}

}  // namespace lumsar::ipc
