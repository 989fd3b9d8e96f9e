// MessageStream: whole messages over one connected socket, both ways, with a bounded queue. Under
// each client of IpcServer and under the service's direct connections to VMs. Everything happens
// on the io_context's one thread; handlers are called there.
#ifndef LUMSAR_IPC_SERVER_MESSAGE_STREAM_H
#define LUMSAR_IPC_SERVER_MESSAGE_STREAM_H

#include <asio/generic/stream_protocol.hpp>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>

#include "ipc/server/outgoing.h"
#include "lumsar/assembler.h"

namespace lumsar::ipc {

class MessageStream : public std::enable_shared_from_this<MessageStream> {
 public:
  using Socket = asio::generic::stream_protocol::socket;
  struct Handlers {
    std::function<void(std::span<unsigned char> message)> onMessage;
    // The stream is at its end, by fault or by the other side; never after close().
    std::function<void(const std::string& why)> onEnd;
  };
  struct Counters {
    std::uint64_t bytesIn = 0;
    std::uint64_t bytesOut = 0;
    std::uint64_t framesDropped = 0;
    std::size_t bytesQueued = 0;
  };

  explicit MessageStream(Socket socket, QueueLimits limits = {});

  void start(Handlers handlers);
  void send(Outgoing outgoing);
  void close();
  // Closes once what is queued has been written.
  void closeAfterSending();

  bool open() const { return m_socket.is_open(); }
  Counters counters() const;

 private:
  void read();
  void onRead(std::size_t size);
  void write();
  void end(const std::string& why);

  Socket m_socket;
  Handlers m_handlers;
  MessageAssembler m_assembler;
  OutQueue m_queue;
  std::optional<Outgoing> m_inFlight;
  bool m_closing = false;
  Counters m_counters;
};

}  // namespace lumsar::ipc

#endif
