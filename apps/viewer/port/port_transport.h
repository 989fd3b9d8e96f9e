// PortTransport: the channel as a port of a SPICE connection that is another program's. That
// program draws its desktop on the same thread, so nothing here waits: a VM that sends more than is
// handled loses its port.
//
// Bound to GTK's thread, except for serve() and what Transport says of wake().
#pragma once

#include <spice-client.h>

#include <atomic>
#include <functional>
#include <memory>
#include <string>

#include "spice/port_writer.h"
#include "transport/inbox.h"
#include "transport/send_queue.h"
#include "transport/transport.h"

namespace lumsar::viewer {

enum class PortEnd { ConnectionEnded, TooMuch };
// For the log.
const char* textOf(PortEnd end);

class PortTransport final : public host::Transport,
                            public std::enable_shared_from_this<PortTransport> {
 public:
  using OnEnded = std::function<void(PortEnd)>;

  // `onEnded` is called once, when the port is lost; the transport may be let go of in it.
  static std::shared_ptr<PortTransport> watch(SpicePortChannel* port, bool isOpen, OnEnded onEnded);
  ~PortTransport() override { detach(); }

  // The queue is not used from here on, and `onEnded` is not called.
  void detach();

  // By the session, on its thread, before start().
  void serve(host::SendQueue& queue, host::Inbox& inbox);
  void start() override;
  void stop() override {}
  void wake() override;

 private:
  PortTransport(SpicePortChannel* port, bool isOpen, OnEnded onEnded);
  void connectSignals();
  static void freed(gpointer self, GObject* port);
  void begin();
  void guestDid(int event);
  void channelEvent(SpiceChannelEvent event);
  void received(const void* bytes, int size);
  void setOpen(bool open, const std::string& why);
  void tellOpen();
  void end(PortEnd why);
  template <class Call>
  void post(Call call);

  SpicePortChannel* m_port;  // while it exists
  bool m_open;
  OnEnded m_onEnded;
  host::SendQueue* m_queue = nullptr;
  std::shared_ptr<host::Inbox> m_inbox;
  std::shared_ptr<host::PortWriter> m_writer;  // once the session has begun
  std::atomic<bool> m_drainPosted = false;
};

}  // namespace lumsar::viewer
