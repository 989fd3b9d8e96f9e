// TcpLink: see tcp_link.h. Runs on the io_context's thread.
#include "links/tcp_link.h"

#include <netinet/tcp.h>

#include <cstring>
#include <random>

#include "app/log.h"

namespace lumsar::service {
namespace {

constexpr std::chrono::milliseconds kFarewell{1000};  // for what is still to be sent
// A VM that acknowledges nothing for this long, or makes no room, is given up by the system.
constexpr unsigned int kTakesNothingMs = 10000;

std::uint16_t newToken() {
  std::random_device source;
  return static_cast<std::uint16_t>(source());
}

}  // namespace

std::string addressText(const asio::ip::tcp::endpoint& endpoint) {
  return joined("tcp ", endpoint);
}

TcpLink::TcpLink(asio::io_context& io, const asio::ip::tcp::endpoint& vm, Handlers handlers)
    : m_socket(io), m_vm(vm), m_handlers(std::move(handlers)), m_limit(io) {}

void TcpLink::start() {
  m_limit.expires_after(kLimit);
  m_limit.async_wait([self = shared_from_this()](asio::error_code stopped) {
    if (stopped || self->m_ready) return;
    self->end(self->m_stream ? "the VM did not answer the greeting in time"
                             : "the VM could not be reached in time");
  });
  m_socket.async_connect(m_vm, [self = shared_from_this()](asio::error_code error) {
    if (self->m_ended) return;
    if (error) return self->end("cannot connect: " + error.message());
    self->greet();
  });
}

void TcpLink::greet() {
  asio::error_code ignored;
  m_socket.set_option(asio::ip::tcp::no_delay(true), ignored);
  ::setsockopt(m_socket.native_handle(), IPPROTO_TCP, TCP_USER_TIMEOUT, &kTakesNothingMs,
               sizeof kTakesNothingMs);
  m_stream = std::make_shared<ipc::MessageStream>(std::move(m_socket));
  m_stream->start({[this, self = weak_from_this()](std::span<unsigned char> message) {
                     if (const auto alive = self.lock()) onMessage(message);
                   },
                   [this, self = weak_from_this()](const std::string& why) {
                     if (const auto alive = self.lock()) end(why);
                   }});
  m_token = newToken();
  ipc::Message hello(MSG_HELLO, sizeof(HelloPayload));
  RedirMsgHeader header = hello.header();
  header.clientMajor = kProtocolMajor;
  header.clientMinor = kProtocolMinor;
  header.capabilities = CAP_BASE_1 | CAP_BASE_2;
  hello.setHeader(header);
  const HelloPayload payload = {m_token, 0};
  std::memcpy(hello.payload().data(), &payload, sizeof payload);
  m_stream->send({std::move(hello)});
}

void TcpLink::onMessage(std::span<const unsigned char> message) {
  if (m_ended) return;
  const RedirMsgHeader header = readHeader(message.data());
  const auto payload = message.subspan(kHeaderSize);
  if (header.type == MSG_DATA && m_ready) return m_handlers.onRecord(payload);
  if (header.type != MSG_HELLO || m_ready) return;
  HelloPayload hello;
  if (payload.size() < sizeof hello) return end("the VM's greeting is too short");
  std::memcpy(&hello, payload.data(), sizeof hello);
  if (hello.token != m_token) return end("the VM's greeting carries another token");
  m_ready = true;
  m_limit.cancel();
  logInfo(name(), ": VM session ", hello.vmSession, ", version ", int{header.vmMajor}, ".",
          int{header.vmMinor});
  m_handlers.onReady();
}

void TcpLink::send(ipc::Outgoing outgoing) {
  if (m_stream) m_stream->send(std::move(outgoing));
}

std::string TcpLink::name() const {
  return addressText(m_vm);
}

void TcpLink::close() {
  m_ended = true;
  m_ready = false;
  asio::error_code ignored;
  m_socket.close(ignored);
  m_limit.cancel();
  if (!m_stream) return;
  m_stream->closeAfterSending();
  m_limit.expires_after(kFarewell);
  m_limit.async_wait([self = shared_from_this()](asio::error_code) { self->m_stream->close(); });
}

void TcpLink::end(const std::string& why) {
  if (m_ended) return;
  close();
  m_handlers.onEnd(why);
}

}  // namespace lumsar::service
