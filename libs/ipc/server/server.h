// IpcServer: the service's end of the transport. Accepts clients of the same user, waits for their
// connect request and carries complete messages both ways.
//
//   SocketListener --> Session (user check, connect request, MessageStream) --> IpcServerEvents
//
// Bound to the thread that runs the io_context; the events may call any member of the server.
#pragma once

#include <asio/io_context.hpp>
#include <asio/local/stream_protocol.hpp>
#include <asio/steady_timer.hpp>
#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <span>
#include <string>

#include "base/net/socket_listener.h"
#include "ipc/server/message_stream.h"

namespace lumsar::ipc {

using ClientId = std::uint32_t;

class IpcServerEvents {
 public:
  virtual ~IpcServerEvents() = default;
  virtual void onClient(ClientId client, const std::string& name) = 0;
  // `message` is valid during the call only.
  virtual void onMessage(ClientId client, std::span<unsigned char> message) = 0;
  virtual void onClientGone(ClientId client, const std::string& why) = 0;
  // For the log: who was refused, and why.
  virtual void onWarning(const std::string& text) = 0;
};

struct ServerLimits {
  std::size_t clients = 64;
  std::chrono::milliseconds connectTimeout{5000};  // for a newcomer's connect request
  protocol::QueueLimits queue = kStreamLimits;
  std::size_t spareDescriptors = 0;  // which clients leave to the rest of the program
};

class IpcServer {
 public:
  IpcServer(asio::io_context& io, base::SocketListener listener, IpcServerEvents& events,
            const ServerLimits& limits = {});
  ~IpcServer();
  IpcServer(const IpcServer&) = delete;
  IpcServer& operator=(const IpcServer&) = delete;

  // Messages to a disconnected client are dropped.
  void send(ClientId client, Outgoing outgoing);
  // Answers the synchronous call `request`.
  void reply(ClientId client, const RedirMsgHeader& request, protocol::Message message);
  void disconnect(ClientId client, const std::string& why);
  MessageStream::Counters counters(ClientId client) const;
  const std::string& path() const { return m_listener.name(); }

 private:
  struct Session;

  void accept();
  void admit(asio::local::stream_protocol::socket socket);
  void onSessionMessage(Session& session, std::span<unsigned char> message);
  void onConnectRequest(Session& session, std::span<unsigned char> message);
  void onSessionEnd(ClientId id, const std::string& why);
  void refuse(MessageStream& stream, int error, const std::string& why);
  std::unique_ptr<Session> takeOut(ClientId id);

  asio::io_context& m_io;
  base::SocketListener m_listener;
  asio::local::stream_protocol::acceptor m_acceptor;
  asio::steady_timer m_acceptRetry;
  bool m_loggedNoAccept = false;
  IpcServerEvents& m_events;
  const ServerLimits m_limits;
  std::map<ClientId, std::unique_ptr<Session>> m_sessions;
  ClientId m_lastId = 0;
};

}  // namespace lumsar::ipc
