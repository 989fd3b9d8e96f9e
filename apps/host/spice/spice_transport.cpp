#include "spice/spice_transport.h"

#include "spice/on_glib.h"

namespace lumsar::host {

namespace {

constexpr std::chrono::milliseconds kFirstBackOff{250};
constexpr std::chrono::milliseconds kLongestBackOff{5000};
// Two clients of one server take the connection from each other: what ends sooner than this is not
// a success, and the back-off keeps growing.
constexpr gint64 kLastingUs = 10'000'000;
// The server announces all its ports at once, right after it has accepted us.
constexpr unsigned kPortTimeoutMs = 3000;

constexpr const char* kPortClosed = "no program in the VM has the port open";

const char* eventText(SpiceChannelEvent event) {
  switch (event) {
    case SPICE_CHANNEL_ERROR_CONNECT:
      return "cannot connect to the server";
    case SPICE_CHANNEL_ERROR_TLS:
      return "TLS failed: is the server's certificate of an authority in --ca-file, and made out "
             "for this host or for --host-subject?";
    case SPICE_CHANNEL_ERROR_LINK:
      return "the server refused the connection";
    case SPICE_CHANNEL_ERROR_AUTH:
      return "the server refused the ticket";
    case SPICE_CHANNEL_ERROR_IO:
      return "the connection broke";
    default:
      return "the server closed the connection";
  }
}

}  // namespace

SpiceUri readSpiceUri(const std::string& uri) {
  g_autofree char* port = nullptr;
  g_autofree char* tlsPort = nullptr;
  g_autofree char* path = nullptr;
  SpiceSession* session = spice_session_new();
  g_object_set(session, "uri", uri.c_str(), nullptr);
  g_object_get(session, "port", &port, "tls-port", &tlsPort, "unix-path", &path, nullptr);
  g_object_unref(session);
  const bool named = port != nullptr || (path != nullptr && *path != '\0');
  return {.valid = named || tlsPort != nullptr, .tls = tlsPort != nullptr};
}

SpiceTransport::SpiceTransport(SendQueue& queue, Inbox& inbox, SpiceAddress address)
    : m_queue(queue),
      m_writer(std::make_shared<PortWriter>(queue)),
      m_inbox(inbox),
      m_address(std::move(address)),
      m_backOff(kFirstBackOff, kLongestBackOff) {}

SpiceTransport::~SpiceTransport() {
  stop();
}

void SpiceTransport::start() {
  m_glibLoop = g_main_loop_new(nullptr, FALSE);
  m_thread = std::thread([this] { run(); });
}

void SpiceTransport::stop() {
  if (!m_thread.joinable()) return;
  m_inbox.end();
  onGlib([this] {
    disconnect();
    g_main_loop_quit(m_glibLoop);
  });
  m_thread.join();
  // Writes that were cut off still call back, from here now that the thread is gone.
  while (m_writer->isWriting()) g_main_context_iteration(nullptr, TRUE);
  g_main_loop_unref(m_glibLoop);
}

void SpiceTransport::wake() {
  onGlib([this] { m_writer->drain(); });
}

void SpiceTransport::run() {
  connect();
  g_main_loop_run(m_glibLoop);
}

void SpiceTransport::connect() {
  m_session = spice_session_new();
  g_object_set(m_session, "uri", m_address.uri.c_str(), "enable-audio", FALSE, "enable-smartcard",
               FALSE, "enable-usbredir", FALSE, nullptr);
  if (!m_address.ticket.empty()) {
    g_object_set(m_session, "password", m_address.ticket.c_str(), nullptr);
  }
  if (!m_address.caFile.empty()) {
    g_object_set(m_session, "ca-file", m_address.caFile.c_str(), nullptr);
  }
  if (!m_address.hostSubject.empty()) {
    g_object_set(m_session, "cert-subject", m_address.hostSubject.c_str(), "verify",
                 SPICE_SESSION_VERIFY_SUBJECT, nullptr);
  }
  g_signal_connect(m_session, "channel-new",
                   G_CALLBACK(+[](SpiceSession*, SpiceChannel* channel, gpointer self) {
                     static_cast<SpiceTransport*>(self)->channelAppeared(channel);
                   }),
                   this);
  if (!spice_session_connect(m_session)) {
    m_inbox.unavailable("the SPICE library does not accept the address");
    reconnectLater();
  }
}

void SpiceTransport::disconnect() {
  if (m_retry != 0) g_source_remove(m_retry);
  if (m_portCheck != 0) g_source_remove(m_portCheck);
  m_retry = m_portCheck = 0;
  setOpen(false, "disconnected");
  if (m_port != nullptr) {
    g_signal_handlers_disconnect_by_data(m_port, this);
    g_clear_object(&m_port);
  }
  if (m_session != nullptr) {
    g_signal_handlers_disconnect_by_data(m_session, this);
    g_autoptr(GList) channels = spice_session_get_channels(m_session);
    for (const GList* item = channels; item != nullptr; item = item->next) {
      g_signal_handlers_disconnect_by_data(item->data, this);
    }
    spice_session_disconnect(m_session);
    g_clear_object(&m_session);
  }
}

void SpiceTransport::reconnectLater() {
  if (m_retry != 0) return;
  m_retry = g_timeout_add(
      static_cast<guint>(m_backOff.next().count()),
      [](gpointer data) -> gboolean {
        auto& self = *static_cast<SpiceTransport*>(data);
        self.m_retry = 0;
        self.disconnect();
        self.connect();
        return G_SOURCE_REMOVE;
      },
      this);
}

void SpiceTransport::channelAppeared(SpiceChannel* channel) {
  if (SPICE_IS_MAIN_CHANNEL(channel)) {
    g_signal_connect(channel, "channel-event",
                     G_CALLBACK(+[](SpiceChannel*, SpiceChannelEvent event, gpointer self) {
                       static_cast<SpiceTransport*>(self)->mainEvent(event);
                     }),
                     this);
  } else if (SPICE_IS_PORT_CHANNEL(channel)) {
    // A server may have several ports; their names come only with the connection.
    watchPort(channel);
    spice_channel_connect(channel);
  }
}

void SpiceTransport::watchPort(SpiceChannel* channel) {
  g_signal_connect(channel, "notify::port-name",
                   G_CALLBACK(+[](SpicePortChannel* port, GParamSpec*, gpointer self) {
                     static_cast<SpiceTransport*>(self)->portNamed(port);
                   }),
                   this);
  // Not the property port-opened: the library also sets it for bytes that a closed port still held.
  g_signal_connect(channel, "port-event",
                   G_CALLBACK(+[](SpicePortChannel* port, int event, gpointer self) {
                     static_cast<SpiceTransport*>(self)->guestDid(port, event);
                   }),
                   this);
  g_signal_connect(channel, "port-data",
                   G_CALLBACK(+[](SpicePortChannel* port, void* bytes, int size, gpointer data) {
                     auto& self = *static_cast<SpiceTransport*>(data);
                     if (port != self.m_port || !self.m_open) return;
                     self.m_inbox.received({static_cast<const unsigned char*>(bytes),
                                            static_cast<std::size_t>(size)});
                   }),
                   this);
  g_signal_connect(channel, "channel-event",
                   G_CALLBACK(+[](SpiceChannel* port, SpiceChannelEvent event, gpointer data) {
                     auto& self = *static_cast<SpiceTransport*>(data);
                     // One that fails before it has a name may have been ours.
                     const bool other =
                         self.m_port != nullptr && port != SPICE_CHANNEL(self.m_port);
                     if (!other) self.portEvent(event);
                   }),
                   this);
}

void SpiceTransport::mainEvent(SpiceChannelEvent event) {
  if (event == SPICE_CHANNEL_OPENED) {
    m_connectedAt = g_get_monotonic_time();
    m_portCheck = g_timeout_add(
        kPortTimeoutMs,
        [](gpointer data) -> gboolean {
          static_cast<SpiceTransport*>(data)->checkPort();
          return G_SOURCE_REMOVE;
        },
        this);
    return;
  }
  if (event == SPICE_CHANNEL_NONE || event == SPICE_CHANNEL_SWITCHING) return;
  const bool lasted = m_connectedAt != 0 && g_get_monotonic_time() - m_connectedAt > kLastingUs;
  if (lasted) m_backOff.reset();
  m_connectedAt = 0;
  setOpen(false, eventText(event));
  m_inbox.unavailable(eventText(event));
  reconnectLater();
}

void SpiceTransport::portEvent(SpiceChannelEvent event) {
  if (event != SPICE_CHANNEL_OPENED && event != SPICE_CHANNEL_NONE) {
    setOpen(false, eventText(event));
    // The main channel may be well; it would not bring the port's back.
    if (event != SPICE_CHANNEL_SWITCHING) reconnectLater();
  }
}

// Whether it is our port: only its name says.
bool SpiceTransport::recognise(SpicePortChannel* port) {
  g_autofree char* name = nullptr;
  g_object_get(port, "port-name", &name, nullptr);
  if (name == nullptr || m_address.port != name) return false;
  g_set_object(&m_port, port);
  return true;
}

// A port that is open already has reported so before.
void SpiceTransport::portNamed(SpicePortChannel* port) {
  if (recognise(port) && !m_open) m_inbox.unavailable(kPortClosed);
}

void SpiceTransport::guestDid(SpicePortChannel* port, int event) {
  if (!recognise(port)) return;
  if (event == SPICE_PORT_EVENT_OPENED) setOpen(true, {});
  if (event == SPICE_PORT_EVENT_CLOSED) setOpen(false, kPortClosed);
}

void SpiceTransport::checkPort() {
  m_portCheck = 0;
  if (m_port != nullptr) return;
  m_inbox.unavailable("the VM has no port named " + m_address.port + "; its definition lacks it");
}

void SpiceTransport::setOpen(bool open, const std::string& why) {
  if (open == m_open) return;
  m_open = open;
  if (open) {
    m_inbox.opened();
    m_writer->open(m_port);
  } else {
    m_writer->close();
    m_queue.close();
    m_inbox.closed(why);
  }
}

}  // namespace lumsar::host
