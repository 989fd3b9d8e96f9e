#include "transports/tcp_transport.h"

#include <netinet/tcp.h>

#include <asio/write.hpp>
#include <sstream>

#include "base/log.h"
#include "protocol/hello.h"

namespace lumsar::service {
namespace {

constexpr std::chrono::milliseconds kDrainTimeout{1000};  // for what is queued at the end
// The system ends a connection whose VM acknowledges nothing or accepts no data for this long.
constexpr unsigned int kStalledMs = 10000;

}  // namespace

std::string addressText(const asio::ip::tcp::endpoint& endpoint) {
  std::ostringstream text;
  text << "tcp " << endpoint;
  return text.str();
}

TcpTransport::TcpTransport(asio::io_context& io, const asio::ip::tcp::endpoint& vm,
                           std::string accessLine, Handlers handlers)
    : m_socket(io),
      m_vm(vm),
      m_accessLine(std::move(accessLine)),
      m_handlers(std::move(handlers)),
      m_timer(io) {}

void TcpTransport::start() {
  m_timer.expires_after(kConnectTimeout);
  m_timer.async_wait([self = shared_from_this()](asio::error_code stopped) {
    if (stopped || self->m_ready) return;
    self->end(self->m_stream ? "the VM did not answer the handshake in time"
                             : "the VM could not be reached in time");
  });
  m_socket.async_connect(m_vm, [self = shared_from_this()](asio::error_code error) {
    if (self->m_ended) return;
    if (error) return self->end("cannot connect: " + error.message());
    self->sendHello();
  });
}

void TcpTransport::sendHello() {
  asio::error_code ignored;
  m_socket.set_option(asio::ip::tcp::no_delay(true), ignored);
  ::setsockopt(m_socket.native_handle(), IPPROTO_TCP, TCP_USER_TIMEOUT, &kStalledMs,
               sizeof kStalledMs);
  sendAccessLine();
  m_stream = std::make_shared<ipc::MessageStream>(std::move(m_socket));
  m_stream->start({[this, self = weak_from_this()](base::Bytes message) {
                     if (const auto alive = self.lock()) onMessage(message);
                   },
                   [this, self = weak_from_this()](const std::string& why) {
                     if (const auto alive = self.lock()) end(why);
                   }});
  m_token = protocol::newToken();
  m_stream->send({protocol::helloMessage(m_token)});
}

// It fits the empty buffer of a new connection; a connection that is lost already ends below.
void TcpTransport::sendAccessLine() {
  asio::error_code ignored;
  asio::write(m_socket, asio::buffer(m_accessLine), ignored);
}

void TcpTransport::onMessage(base::Bytes message) {
  if (m_ended) return;
  const std::uint32_t type = readHeader(message.data()).type;
  if (m_ready && type == MSG_DATA) m_handlers.onRecord(message.subspan(kHeaderSize));
  if (!m_ready && type == MSG_HELLO) onHello(message);
}

void TcpTransport::onHello(base::Bytes message) {
  const auto hello = protocol::readHello(message);
  if (!hello) return end("the VM's HELLO is too short");
  if (hello->payload.token != m_token) return end("the VM's HELLO carries another token");
  m_ready = true;
  m_timer.cancel();
  const RedirMsgHeader& header = hello->header;
  base::logInfo("{}: VM session {}, version {}.{}", name(), std::uint16_t{hello->payload.vmSession},
                int{header.vmMajor}, int{header.vmMinor});
  m_handlers.onReady();
}

void TcpTransport::send(ipc::Outgoing outgoing) {
  if (m_stream) m_stream->send(std::move(outgoing));
}

std::string TcpTransport::name() const {
  return addressText(m_vm);
}

void TcpTransport::close() {
  m_ended = true;
  m_ready = false;
  asio::error_code ignored;
  m_socket.close(ignored);
  m_timer.cancel();
  if (!m_stream) return;
  m_stream->closeAfterSending();
  m_timer.expires_after(kDrainTimeout);
  m_timer.async_wait([self = shared_from_this()](asio::error_code) { self->m_stream->close(); });
}

void TcpTransport::end(const std::string& why) {
  if (m_ended) return;
  const bool wasReady = m_ready;
  close();
  if (wasReady) return m_handlers.onEnd(why);
  // What answers at an address that is no VM's is not the host's business.
  base::logWarning("{}: {}", name(), why);
  m_handlers.onEnd("no guest agent answers there");
}

}  // namespace lumsar::service
