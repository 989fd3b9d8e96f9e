// Each pending operation holds a reference to the stream, so it lives until the last one is over.
#include "ipc/server/message_stream.h"

#include <algorithm>
#include <array>
#include <asio/buffer.hpp>
#include <asio/error.hpp>
#include <asio/post.hpp>

#include "ipc/read_size.h"

namespace lumsar::ipc {
namespace {

std::string reason(const asio::error_code& error) {
  if (error == asio::error::eof || error == asio::error::connection_reset ||
      error == asio::error::broken_pipe) {
    return "the peer closed the connection";
  }
  return error.message();
}

asio::const_buffer from(protocol::Bytes bytes, std::size_t sent) {
  return asio::buffer(bytes.data() + sent, bytes.size() - sent);
}

// Both parts go in one call, without a copy.
std::size_t sendUnsent(MessageStream::Socket& socket, const Outgoing& outgoing, std::size_t sent,
                       asio::error_code& error) {
  const protocol::Bytes head = outgoing.message.bytes();
  const protocol::Bytes rest = outgoing.rest.bytes;
  if (rest.empty()) return socket.send(from(head, sent), 0, error);
  if (sent >= head.size()) return socket.send(from(rest, sent - head.size()), 0, error);
  return socket.send(std::array{from(head, sent), from(rest, 0)}, 0, error);
}

}  // namespace

MessageStream::MessageStream(Socket socket, const protocol::QueueLimits& limits)
    : m_socket(std::move(socket)), m_queue(limits, [](Outgoing& dropped) {
        if (dropped.onDrop) dropped.onDrop();
      }) {
  m_socket.non_blocking(true);
}

void MessageStream::start(Handlers handlers) {
  m_handlers = std::move(handlers);
  read();
}

void MessageStream::read() {
  const auto room = m_assembler.prepare(readSize(m_assembler.missing()));
  m_socket.async_read_some(asio::buffer(room.data(), room.size()),
                           [self = shared_from_this()](asio::error_code error, std::size_t size) {
                             if (!self->open()) return;
                             if (error) return self->end(reason(error));
                             self->received(size);
                             self->readRest();
                             self->deliver();
                           });
}

void MessageStream::received(std::size_t size) {
  m_assembler.commit(size);
  m_counters.bytesIn += size;
}

// What has come of a large message; errors and the end are met by the next read.
void MessageStream::readRest() {
  while (isWorthACall(m_assembler.missing())) {
    const auto room = m_assembler.prepare(readSize(m_assembler.missing()));
    asio::error_code error;
    received(m_socket.receive(asio::buffer(room.data(), room.size()), 0, error));
    if (error) return;
  }
}

void MessageStream::deliver() {
  while (open()) {
    m_paused = m_queue.controlBytes() >= kReadPause;
    if (m_paused) return;
    const auto message = m_assembler.next();
    if (message.empty()) break;
    m_handlers.onMessage(message);
  }
  if (!open()) return;
  const auto fault = m_assembler.fault();
  if (fault != MessageAssembler::Fault::None) return end(std::string("it ") + faultText(fault));
  read();
}

void MessageStream::send(Outgoing outgoing) {
  if (!open() || m_closing) return;
  if (!enqueue(std::move(outgoing))) {
    return endLater("it has stopped reading: too many messages wait for it");
  }
  if (!m_inFlight) write();
}

bool MessageStream::enqueue(Outgoing outgoing) {
  const std::size_t size = outgoing.size();
  if (!outgoing.frame) return m_queue.pushControl(std::move(outgoing), size);
  m_queue.pushFrame(std::move(outgoing), size);
  return true;
}

void MessageStream::write() {
  while (m_inFlight || takeNext()) {
    asio::error_code error;
    m_sent += sendUnsent(m_socket, *m_inFlight, m_sent, error);
    if (error == asio::error::would_block) return writeWhenReady();
    if (error) return endLater(reason(error));
    if (m_sent < m_inFlight->size()) continue;
    m_counters.bytesOut += m_sent;
    m_inFlight.reset();
  }
  if (m_closing) close();
}

bool MessageStream::takeNext() {
  auto next = m_queue.pop();
  if (!next) return false;
  m_inFlight = std::move(next->entry);
  m_sent = 0;
  if (m_inFlight->onLeave) m_inFlight->onLeave(m_inFlight->message);
  return true;
}

void MessageStream::writeWhenReady() {
  m_socket.async_wait(Socket::wait_write, [self = shared_from_this()](asio::error_code error) {
    if (!self->open()) return;
    if (error) return self->end(reason(error));
    self->write();
    if (self->m_paused) self->deliver();
  });
}

// Not from inside the sender's call: it may be going through its list of receivers.
void MessageStream::endLater(const std::string& why) {
  asio::post(m_socket.get_executor(), [self = shared_from_this(), why] {
    if (self->open()) self->end(why);
  });
}

void MessageStream::close() {
  if (!open()) return;
  asio::error_code ignored;
  m_socket.shutdown(Socket::shutdown_both, ignored);
  m_socket.close(ignored);
}

void MessageStream::closeAfterSending() {
  m_closing = true;
  if (!m_inFlight) write();
}

void MessageStream::end(const std::string& why) {
  close();
  if (m_handlers.onEnd) m_handlers.onEnd(why);
}

MessageStream::Counters MessageStream::counters() const {
  Counters counters = m_counters;
  counters.framesDropped = m_queue.dropped();
  counters.bytesQueued = m_queue.bytes() + (m_inFlight ? m_inFlight->size() : 0);
  return counters;
}

}  // namespace lumsar::ipc
