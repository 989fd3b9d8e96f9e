#include "transports/tcp_transport.h"

#include <netinet/tcp.h>

#include <algorithm>
#include <asio/connect.hpp>
#include <asio/write.hpp>

#include "base/log.h"
#include "protocol/hello.h"

namespace lumsar::service {
namespace {

constexpr std::chrono::milliseconds kDrainTimeout{1000};  // for what is queued at the end
// The system ends a connection whose VM acknowledges nothing or accepts no data for this long.
constexpr unsigned int kStalledMs = 10000;

}  // namespace

TcpTransport::TcpTransport(asio::io_context& io, VmAddress vm, const DirectNetworks& allowed,
                           std::string accessLine, Handlers handlers)
    : m_resolver(io),
      m_socket(io),
      m_vm(std::move(vm)),
      m_allowed(allowed),
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
  if (!m_vm.ip) return resolve();
  connect({{*m_vm.ip, m_vm.port}});
}

// On the resolver's own thread, one name after another.
void TcpTransport::resolve() {
  m_resolver.async_resolve(
      m_vm.host, std::to_string(m_vm.port), asio::ip::resolver_base::numeric_service,
      [self = shared_from_this()](asio::error_code error, const auto& found) {
        if (self->m_ended) return;
        if (error) return self->end("cannot resolve the name: " + error.message());
        const Endpoints endpoints = self->allowedOf(found);
        if (!endpoints.empty()) return self->connect(endpoints);
        self->end(
            "the name leads only to addresses in networks that the camera service does not "
            "connect to");
      });
}

// At most one address of each family: with more, one name could search a network.
TcpTransport::Endpoints TcpTransport::allowedOf(
    const asio::ip::tcp::resolver::results_type& found) const {
  Endpoints endpoints;
  for (const auto& entry : found) {
    const asio::ip::tcp::endpoint endpoint = entry.endpoint();
    const auto isSameFamily = [&](const auto& other) {
      return other.protocol() == endpoint.protocol();
    };
    if (!m_allowed.allow(endpoint.address())) continue;
    if (std::ranges::none_of(endpoints, isSameFamily)) endpoints.push_back(endpoint);
  }
  return endpoints;
}

void TcpTransport::connect(const Endpoints& endpoints) {
  asio::async_connect(m_socket, endpoints,
                      [self = shared_from_this()](asio::error_code error, const auto& /*vm*/) {
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
  return m_vm.text();
}

void TcpTransport::close() {
  m_ended = true;
  m_ready = false;
  asio::error_code ignored;
  m_resolver.cancel();
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
