// A client's error ends that client's connection, with a line for the log, and nothing else.
#include "ipc/server/server.h"

#include <fcntl.h>

#include <utility>

#include "base/system/spare_resources.h"
#include "ipc/channel_path.h"
#include "lumsar/ipc_transport.h"

namespace lumsar::ipc {

namespace {
// Far more than a client's library sends; names go into logs and reports.
constexpr std::size_t kLongestName = 256;
}  // namespace

using Local = asio::local::stream_protocol;

struct IpcServer::Session {
  Session(asio::io_context& io, ClientId number, std::shared_ptr<MessageStream> messages)
      : id(number), stream(std::move(messages)), connectTimer(io) {}
  ~Session() { stream->close(); }

  const ClientId id;
  const std::shared_ptr<MessageStream> stream;
  asio::steady_timer connectTimer;
  bool accepted = false;
};

IpcServer::IpcServer(asio::io_context& io, base::SocketListener listener, IpcServerEvents& events,
                     const ServerLimits& limits)
    : m_io(io),
      m_listener(std::move(listener)),
      m_acceptor(io),
      m_acceptRetry(io),
      m_events(events),
      m_limits(limits) {
  // A duplicate: the listener keeps its own and with it the ownership of the file.
  m_acceptor.assign(Local(), ::fcntl(m_listener.get(), F_DUPFD_CLOEXEC, 0));
  m_acceptor.native_non_blocking(true);
  accept();
}

IpcServer::~IpcServer() {
  asio::error_code ignored;
  m_acceptor.close(ignored);
}

void IpcServer::accept() {
  m_acceptor.async_accept([this](asio::error_code error, Local::socket socket) {
    if (error == asio::error::operation_aborted) return;
    if (!error) {
      m_loggedNoAccept = false;
      admit(std::move(socket));
      return accept();
    }
    // Out of descriptors: trying again at once would only spin.
    if (!std::exchange(m_loggedNoAccept, true)) {
      m_events.onWarning("cannot accept a client: " + error.message() + "; trying again");
    }
    m_acceptRetry.expires_after(std::chrono::milliseconds(100));
    m_acceptRetry.async_wait([this](asio::error_code stopped) {
      if (!stopped) accept();
    });
  });
}

void IpcServer::admit(Local::socket socket) {
  const bool same = sameUser(socket.native_handle());
  auto stream = std::make_shared<MessageStream>(std::move(socket), m_limits.queue);
  if (!same) return refuse(*stream, IPC_ERROR_OTHER_USER, "it belongs to another user");
  if (m_sessions.size() >= m_limits.clients) {
    return refuse(*stream, IPC_ERROR_REFUSED, "too many clients are connected");
  }
  if (!base::hasSpareDescriptors(m_limits.spareDescriptors)) {
    return refuse(*stream, IPC_ERROR_REFUSED, base::tooManyOpenFiles());
  }
  auto session = std::make_unique<Session>(m_io, ++m_lastId, std::move(stream));
  Session& newcomer = *session;
  m_sessions[newcomer.id] = std::move(session);
  newcomer.connectTimer.expires_after(m_limits.connectTimeout);
  newcomer.connectTimer.async_wait([this, id = newcomer.id](asio::error_code stopped) {
    if (!stopped) onSessionEnd(id, "it did not send a connect request in time");
  });
  newcomer.stream->start(
      {[this, &newcomer](std::span<unsigned char> message) { onSessionMessage(newcomer, message); },
       [this, id = newcomer.id](const std::string& why) { onSessionEnd(id, why); }});
}

void IpcServer::refuse(MessageStream& stream, int error, const std::string& why) {
  m_events.onWarning("a client was refused: " + why);
  stream.send({protocol::Message(IPC_MSG_CONNECT_ACCEPT, 0, static_cast<std::uint32_t>(error))});
  stream.closeAfterSending();
}

void IpcServer::onSessionMessage(Session& session, std::span<unsigned char> message) {
  if (!session.accepted) return onConnectRequest(session, message);
  m_events.onMessage(session.id, message);
}

void IpcServer::onConnectRequest(Session& session, std::span<unsigned char> message) {
  if (readHeader(message.data()).type != IPC_MSG_CONNECT_REQUEST) {
    return onSessionEnd(session.id, "its first message was not a connect request");
  }
  const auto name = message.subspan(kHeaderSize);
  if (name.size() > kLongestName) {
    return onSessionEnd(session.id,
                        "its name is longer than " + std::to_string(kLongestName) + " bytes");
  }
  session.connectTimer.cancel();
  session.accepted = true;
  session.stream->send({protocol::Message(IPC_MSG_CONNECT_ACCEPT)});
  m_events.onClient(session.id, std::string(name.begin(), name.end()));
}

std::unique_ptr<IpcServer::Session> IpcServer::takeOut(ClientId id) {
  const auto found = m_sessions.find(id);
  if (found == m_sessions.end()) return nullptr;
  auto session = std::move(found->second);
  m_sessions.erase(found);
  return session;
}

void IpcServer::onSessionEnd(ClientId id, const std::string& why) {
  const auto session = takeOut(id);
  if (!session) return;
  session->stream->close();
  if (session->accepted) return m_events.onClientGone(id, why);
  m_events.onWarning("a client was disconnected before it was accepted: " + why);
}

void IpcServer::send(ClientId client, Outgoing outgoing) {
  const auto found = m_sessions.find(client);
  if (found != m_sessions.end()) found->second->stream->send(std::move(outgoing));
}

void IpcServer::reply(ClientId client, const RedirMsgHeader& request, protocol::Message message) {
  RedirMsgHeader header = message.header();
  setCallNumber(header, callNumber(request));
  message.setHeader(header);
  send(client, {std::move(message)});
}

void IpcServer::disconnect(ClientId client, const std::string& why) {
  onSessionEnd(client, why);
}

MessageStream::Counters IpcServer::counters(ClientId client) const {
  const auto found = m_sessions.find(client);
  return found == m_sessions.end() ? MessageStream::Counters{} : found->second->stream->counters();
}

}  // namespace lumsar::ipc
