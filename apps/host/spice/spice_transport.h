// SpiceTransport: the channel as a SPICE port channel, through the SPICE client library.
// The library lives on its own thread with the default GLib context.
#pragma once

#include <spice-client.h>

#include <memory>
#include <string>
#include <thread>

#include "base/back_off.h"
#include "protocol/names.h"
#include "spice/port_writer.h"
#include "transport/inbox.h"
#include "transport/send_queue.h"
#include "transport/transport.h"

namespace lumsar::host {

struct SpiceUri {
  bool valid;  // if not, the library has said why on stderr
  bool tls;
};
// What the library makes of it.
SpiceUri readSpiceUri(const std::string& uri);

struct SpiceAddress {
  std::string uri;  // spice://HOST:PORT, spice+tls://HOST:PORT, spice+unix:///PATH
  std::string port = protocol::kSpicePortName;
  std::string ticket = {};       // password, may be empty
  std::string caFile = {};       // for TLS, may be empty
  std::string hostSubject = {};  // of the server's certificate, if it is not made out for HOST
};

class SpiceTransport final : public Transport {
 public:
  SpiceTransport(SendQueue& queue, Inbox& inbox, SpiceAddress address);
  ~SpiceTransport() override;

  void start() override;
  void stop() override;
  void wake() override;

 private:
  // On the GLib thread.
  void run();
  void connect();
  void disconnect();
  void reconnectLater();
  void channelAppeared(SpiceChannel* channel);
  void watchPort(SpiceChannel* channel);
  void mainEvent(SpiceChannelEvent event);
  void portEvent(SpiceChannelEvent event);
  bool recognise(SpicePortChannel* port);
  void portNamed(SpicePortChannel* port);
  void guestDid(SpicePortChannel* port, int event);
  void checkPort();
  void setOpen(bool open, const std::string& why);

  SendQueue& m_queue;
  std::shared_ptr<PortWriter> m_writer;
  Inbox& m_inbox;
  SpiceAddress m_address;
  base::BackOff m_backOff;
  std::thread m_thread;

  GMainLoop* m_glibLoop = nullptr;
  SpiceSession* m_session = nullptr;
  SpicePortChannel* m_port = nullptr;  // the one with our name, once it is known
  bool m_open = false;
  unsigned m_retry = 0;
  unsigned m_portCheck = 0;
  gint64 m_connectedAt = 0;  // µs; 0 while there is no connection
};

}  // namespace lumsar::host
