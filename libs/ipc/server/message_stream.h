// MessageStream: complete messages over one connected socket, both ways, with a bounded queue.
// Under each client of IpcServer and under the service's own connections to VMs. Bound to the
// thread that runs the io_context, which calls the handlers.
#pragma once

#include <asio/generic/stream_protocol.hpp>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>

#include "lumsar/assembler.h"
#include "protocol/frame_queue.h"
#include "protocol/message.h"

namespace lumsar::ipc {

// A frame may be dropped while it waits; control messages never are.
struct Outgoing {
  protocol::Message message;
  bool frame = false;
  std::function<void(protocol::Message&)> onLeave = {};  // just before it is written to the socket
  std::function<void()> onDrop = {};
  protocol::SharedBytes rest = {};  // sent behind the message, whose header counts it

  std::size_t size() const { return message.size() + rest.bytes.size(); }
};

// Any more frames would only be outdated. A receiver that leaves more control messages than
// these waiting is disconnected; those that answer its own messages come no faster than it reads.
inline constexpr protocol::QueueLimits kStreamLimits{
    .frames = 4, .frameBytes = 16U << 20U, .controlBytes = 1U << 20U};

// While this much of control messages waits, nothing further is read from the peer.
inline constexpr std::size_t kReadPause = 64U << 10U;

class MessageStream : public std::enable_shared_from_this<MessageStream> {
 public:
  using Socket = asio::generic::stream_protocol::socket;
  struct Handlers {
    std::function<void(std::span<unsigned char> message)> onMessage;
    // An error ended the stream, or the peer did; never after close().
    std::function<void(const std::string& why)> onEnd;
  };
  struct Counters {
    std::uint64_t bytesIn = 0;
    std::uint64_t bytesOut = 0;
    std::uint64_t framesDropped = 0;
    std::size_t bytesQueued = 0;
  };

  explicit MessageStream(Socket socket, const protocol::QueueLimits& limits = kStreamLimits);

  void start(Handlers handlers);
  void send(Outgoing outgoing);
  void close();
  // Closes once what is queued has been written.
  void closeAfterSending();

  bool open() const { return m_socket.is_open(); }
  Counters counters() const;

 private:
  bool enqueue(Outgoing outgoing);
  void read();
  void received(std::size_t size);
  void readRest();
  void deliver();
  void write();
  bool takeNext();
  void writeWhenReady();
  void endLater(const std::string& why);
  void end(const std::string& why);

  Socket m_socket;
  Handlers m_handlers;
  MessageAssembler m_assembler;
  protocol::FrameQueue<Outgoing> m_queue;
  std::optional<Outgoing> m_inFlight;
  std::size_t m_sent = 0;  // of m_inFlight
  bool m_paused = false;
  bool m_closing = false;
  Counters m_counters;
};

}  // namespace lumsar::ipc
